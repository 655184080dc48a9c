// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QDir>
#include <QString>

class Table;
class TableJoin;

/**
 * What the library asks of the program that embeds it: which tables are known by name, whether
 * table files are written compressed, and where a new join is to be registered. Two static helpers
 * beside it find the program's directories.
 *
 * A program answers in one of two ways:
 *  - it derives from ICore (or takes the ready HostCore) and calls setInstance() once at start; or
 *  - it defines `ICore* ICore::instance()` itself: the library's own definition is weak and gives
 *    way to it.
 * Without either the library works alone: no table is known, files are written plain and joins are
 * registered nowhere.
 *
 * Ownership: the library never deletes the object. One that is destroyed while installed uninstalls
 * itself. Threads: setInstance() and instance() may be called from any thread, but an object must
 * not be destroyed while another thread may still call it. The library calls the virtual functions
 * from whichever thread needs the answer, some of them with a table locked: they must be safe to
 * call from any thread, must not throw, and must not lock a table.
 *
 * @code
 * HostCore core;
 * ICore::setInstance(&core);
 * core.addTable(orders.name(), &orders);
 * @endcode
 */
class LIVETABLE_EXPORT ICore
{
public:
    ICore() = default;
    ICore(const ICore&) = delete;
    ICore& operator=(const ICore&) = delete;
    virtual ~ICore();

    /// The host's core object, null when there is none.
    static ICore* instance();

    /// Installs the object that instance() returns; null uninstalls. The caller keeps ownership.
    /// Without effect in a program that defines instance() itself.
    static void setInstance(ICore* core);

    /// Whether a table of exactly this name is known.
    virtual bool hasTable(const QString& name) const = 0;

    /// The table of exactly this name, null when it is unknown. Still the host's.
    virtual Table* table(const QString& name) const = 0;

    /// Whether table files are to be written compressed (gzip, suffix ".gz").
    virtual bool compressTables() const = 0;

    /// Told of each join that was set up to be registered with the host. The host does not become
    /// the owner.
    virtual void registerJoin(TableJoin* join) = 0;

    /**
     * The directory for the program's files (`app` true: shipped with it, never created) or the
     * user's (`app` false: writable, created when missing).
     *
     * Shipped files lie in the executable's directory, in a bundle (a directory whose name ends in
     * "MacOS") in "Resources" beside it. The user's lie in the "user" directory below that one when
     * the program is portable, else in the platform's local application data directory.
     *
     * `sub` is a path below that directory; empty means the directory itself. A shipped `sub` that
     * is missing, or one of the user's that cannot be created, leaves the result at the last
     * directory that could be entered. Nothing is thrown.
     *
     * Needs a QCoreApplication: without one Qt does not know the executable's directory.
     */
    static QDir getDir(const QString& sub, bool app);

    /// False when the program was installed: a file ".installed" lies in the executable's directory
    /// or, in a bundle, in "Resources" beside it. Needs a QCoreApplication.
    static bool isPortable();

    /// Takes `dir` for the executable's directory in the two functions above from now on; empty
    /// means the executable's own again. For programs that are told where their files lie, and for
    /// tests.
    static void setProgramDir(const QString& dir);
};
