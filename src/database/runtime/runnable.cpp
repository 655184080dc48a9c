// SPDX-License-Identifier: MIT
#include "runtime/runnable.h"

#include "base/readwritelock_p.h"

Runnable::Runnable() = default;

Runnable::~Runnable() = default;

void Runnable::stop()
{
    const LiveTable::ScopedMutex locked(mutex);
    mayRun = false;
}

bool Runnable::canRun() const
{
    const LiveTable::ScopedMutex locked(mutex);
    return mayRun;
}
