// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

/// Ends the program with a word when the scope takes longer than it may: a hang fails at once and
/// not by the patience of whoever runs the tests.
class Watchdog
{
public:
    Watchdog(const char* what, int seconds)
        : thread([this, what, seconds] {
            std::unique_lock<std::mutex> lock(mutex);
            if (!done.wait_for(lock, std::chrono::seconds(seconds), [this] { return isDone; })) {
                std::fprintf(stderr, "Watchdog: %s hangs\n", what);
                std::abort();
            }
        })
    {}
    ~Watchdog()
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            isDone = true;
        }
        done.notify_one();
        thread.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    std::mutex mutex;
    std::condition_variable done;
    bool isDone = false;
    std::thread thread;
};
