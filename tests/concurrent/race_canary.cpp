// SPDX-License-Identifier: MIT
// Holds a planted race, which the thread sanitizer must report, or its run says nothing: two
// threads count without a lock, and then with one, which it must not report.
#include <cstring>
#include <mutex>
#include <thread>

int main(int argc, char** argv)
{
    const bool locks = argc > 1 && std::strcmp(argv[1], "locked") == 0;
    std::mutex lock;
    int count = 0;
    const auto work = [&] {
        for (int i = 0; i < 1000; ++i) {
            if (locks)
                lock.lock();
            ++count;
            if (locks)
                lock.unlock();
        }
    };
    std::thread other(work);
    work();
    other.join();
    return locks && count != 2000;
}
