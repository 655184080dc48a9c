// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include <QString>

namespace LiveTable {

/// Settings files of which this process could not read all when it read them last, by their path.
/// Before one is replaced a copy is kept beside it. Every function may be called from any thread.
class DamagedFiles
{
public:
    /// `isUnread`: nothing of it could be read.
    static void add(const QString& path, bool isUnread);
    static void remove(const QString& path);
    static bool isUnread(const QString& path);

    /// Makes sure that what is in the file now is kept as path.damaged-1 or the first number after
    /// it that is free, and durably so; nothing is to be done for a file that is not damaged or not
    /// there. False when that fails: then the file must not be replaced.
    static bool keep(const QString& path);
};

} // namespace LiveTable
