// SPDX-License-Identifier: MIT
// Every call of the system by which files are reached fails in turn, once or for good, below Qt and
// the library alike: the old or the whole new content is there, the failure is told, nothing is
// left open or lying about, and the same works when tried again.
#include "runtime/logfile.h"
#include "settings/settings.h"
#include "support/journal.h"
#include "tables.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int half = 0; // in place of an errno: half of the bytes are read or written
constexpr int rows = 70;

/// Which call fails, of those for files in the folder.
struct Faults
{
    bool isArmed, isForGood; // from the n-th on
    int code, n, calls;
    char folder[200];

    bool isFor(const char* path) const { return !std::strncmp(path, folder, std::strlen(folder)); }
    bool isFor(int file) const
    {
        char path[1000] = "";
        const QByteArray link = "/proc/self/fd/" + QByteArray::number(file);
        return ::readlink(link, path, sizeof path - 1) > 0 && isFor(path);
    }
    template <class Place>
    bool strikes(Place place)
    {
        return isArmed && isFor(place) && (++calls == n || (isForGood && calls > n));
    }
    template <class Place>
    bool fails(Place place)
    {
        const bool isStruck = code != half && strikes(place);
        errno = isStruck ? code : errno;
        return isStruck;
    }
};
Faults faults;

/// Something done in a folder with files in it.
struct Scenario
{
    virtual ~Scenario() = default;
    virtual void act() = 0;
    virtual bool isDone() = 0;
    /// After a failure: as before, or further where that cannot be told from outside.
    virtual bool isWhole() = 0;

    QString path(const QString& name) const { return place.filePath(name); }
    QStringList files() const { return QDir(place.path()).entryList(QDir::Files | QDir::Hidden); }
    bool hasDraft() const { return !faults.isForGood && files().join(' ').contains("saving"); }
    bool isTold() const { return failure.endsWith(std::strerror(faults.code)); }
    const QTemporaryDir place;
    QString failure; ///< what the last action has told
};

/// A header of more than one read, and rows of more than one write that do not compress.
struct WideTable : Table
{
    explicit WideTable(quint32 seed, int count = rows)
        : Table("t")
    {
        addColumn("text", FieldType::VarChar, 2000, true, "title", true, QString(20000, 'd'));
        std::mt19937 random(seed);
        for (int i = 0; i < count; ++i) {
            QString text;
            while (text.size() < 2000)
                text += QChar(ushort(1 + random() % 60000));
            appendList({row(*this, text)});
        }
    }
    static WideTable& made(int seed)
    {
        static WideTable tables[] = {WideTable(1), WideTable(2)};
        return tables[seed - 1];
    }
    static QByteArray saved(int seed, bool isCompressed)
    {
        static QMap<int, QByteArray> all;
        QByteArray& bytes = all[seed * 2 + isCompressed];
        if (bytes.isEmpty()) {
            const TestCore core(isCompressed);
            const QTemporaryDir place;
            TableIO(&made(seed)).write(QDir(place.path()));
            bytes = contentOf(place.filePath(isCompressed ? "t.gz" : "t"));
        }
        return bytes;
    }
};

/// Saves a table where an older one was saved, plain or not, or none.
template <bool wasThere, bool wasCompressed, bool compresses>
struct Saving : Scenario
{
    Saving()
    {
        if (wasThere)
            putContent(path(older), old);
        ICore::setInstance(&core);
    }
    void act() override
    {
        TableIO io(&WideTable::made(2));
        io.write(QDir(place.path()));
        failure = io.errorString();
    }
    bool isNew() const { return contentOf(path(target)) == wanted; }
    bool isDone() override { return failure.isNull() && isNew() && files() == QStringList(target); }
    bool isWhole() override
    {
        return isTold() && (isNew() || contentOf(path(older)) == old) && !hasDraft();
    }
    const QString older = wasCompressed ? "t.gz" : "t", target = compresses ? "t.gz" : "t";
    const QByteArray old = wasThere ? WideTable::saved(1, wasCompressed) : QByteArray("no file");
    const QByteArray wanted = WideTable::saved(2, compresses);
    TestCore core{compresses};
};

/// Reads a table over one with rows of its own.
template <bool isCompressed, bool isStrict>
struct Loading : Scenario
{
    Loading() { putContent(path(isCompressed ? "t.gz" : "t"), WideTable::saved(2, isCompressed)); }
    void act() override
    {
        io.setStrict(isStrict);
        io.read(QDir(place.path()), true);
        failure = io.errorString();
    }
    bool isDone() override { return failure.isNull() && difference(all, table).isEmpty(); }
    bool isWhole() override
    {
        const int row = io.statusRow(), count = table.rowCount();
        bool isFine = isTold() && io.status() == TableIO::ReadFailed && table.verify().isEmpty();
        if (row < 0) // not even a header
            return isFine && ((count == 0 && !isStrict) ||
                              difference(WideTable::made(1), table, 3).isEmpty());
        for (int i = 0; i < count; ++i)
            isFine = isFine && (i < row ? difference(all.at(i), table.at(i)).isEmpty()
                                        : table.data(i, 0).isNull());
        return isFine && count == (isStrict ? row : rows);
    }
    const WideTable& all = WideTable::made(2);
    WideTable table{1, 3};
    TableIO io{&table};
};

/// Settings over a file that is read, and perhaps written.
template <bool writes>
struct SettingsFile : Scenario
{
    SettingsFile()
    {
        putContent(path("s.json"), old);
        if (writes)
            settings = std::make_unique<Settings>(file);
    }
    void act() override
    {
        const auto held = std::move(settings);
        settings = std::make_unique<Settings>(file);
        if (writes)
            change();
        failure = settings->status() == QSettings::NoError ? "" : "told";
    }
    void change()
    {
        settings->setValue("k", 5);
        settings->sync();
    }
    bool isWritten(const QStringList& wanted) const
    {
        return QJsonDocument::fromJson(contentOf(path("s.json"))).object().keys() == wanted;
    }
    bool isDone() override
    {
        if (failure.isEmpty())
            return settings->allKeys() == keys && (!writes || isWritten(keys));
        // Qt does not read what has not changed again, but what could not be read is not lost.
        change();
        return !writes && isWritten({"k"}) && contentOf(path("s.json.damaged-1")) == old;
    }
    bool isWhole() override
    {
        QFile lock(path("s.json.lock")); // as if it were tried again later
        if (lock.open(QIODevice::ReadWrite | QIODevice::ExistingOnly))
            lock.setFileTime(QDateTime::fromMSecsSinceEpoch(0), QFileDevice::FileModificationTime);
        const bool hasOthers = files().size() > 1 + lock.isOpen() && !faults.isForGood;
        return !hasOthers && settings->allKeys() == (writes ? keys : QStringList()) &&
               (contentOf(path("s.json")) == old || (writes && isWritten(keys)));
    }
    const QFileInfo file{path("s.json")};
    const QByteArray old = "{\"a\":\"" + QByteArray(100000, 'x') + "\"}";
    const QStringList keys = writes ? QStringList{"a", "k"} : QStringList("a");
    std::unique_ptr<Settings> settings;
};

/// A log over those of six runs. It tells of no failure.
struct Logging : Scenario
{
    Logging()
    {
        for (int run = 0; run <= LogFile::oldLogs; ++run)
            putContent(run ? LogFile::rotateName(path("app.log"), run) : path("app.log"),
                       text(run));
        failure = "untold";
    }
    static QByteArray text(int run) { return "run " + QByteArray::number(run) + '\n'; }
    void act() override
    {
        LogFile log(path("app.log"));
        lines = (log.device() ? 3 : 0) + (log.installMessageHandler() ? 3 : 0);
        for (int i = 0; i < 3; ++i) {
            log << "line" << Qt::endl;
            qInfo("line");
        }
    }
    int written() const { return contentOf(path("app.log")).count("line\n"); }
    bool isDone() override { return written() == 6; }
    bool isWhole() override
    {
        QByteArray all;
        for (const QString& file : files())
            all += contentOf(path(file));
        bool isFine = faults.isForGood || written() >= lines - 1;
        for (int run = 0; run < LogFile::oldLogs; ++run)
            isFine = isFine && all.count(text(run)) == 1;
        return isFine;
    }
    int lines = 0;
};

template <class Kind>
Scenario* make()
{
    return new Kind;
}

} // namespace

class tst_FileFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyCallFails()
    {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        const std::tuple<const char*, int, Scenario* (*)()> scenarios[] = {
            // with the number of calls that there are at least
            {"save", 12, make<Saving<false, false, false>>},
            {"save over", 12, make<Saving<true, false, false>>},
            {"save over gzip", 14, make<Saving<true, true, false>>},
            {"save gzip over", 13, make<Saving<true, false, true>>},
            {"load", 6, make<Loading<false, false>>},
            {"load strictly", 6, make<Loading<false, true>>},
            {"load gzip", 8, make<Loading<true, false>>},
            {"load gzip strictly", 15, make<Loading<true, true>>},
            {"write settings", 15, make<SettingsFile<true>>},
            {"load settings", 6, make<SettingsFile<false>>},
            {"log", 14, make<Logging>},
        };
        for (const auto& [name, least, make] : scenarios)
            for (const int code : {EIO, ENOSPC, half})
                for (const bool isForGood : {false, true}) {
                    int n = 1;
                    for (QString wrong; run(make, n, code, isForGood, wrong); ++n)
                        QVERIFY2(wrong.isEmpty(), qPrintable(name + wrong));
                    QVERIFY2(n > (code == half ? 2 : least), name);
                }
    }

private:
    /// False when there is no n-th call, and nothing is wrong.
    static bool run(Scenario* (*make)(), int n, int code, bool isForGood, QString& wrong)
    {
        const std::unique_ptr<Scenario> scenario(make());
        const auto openFiles = [] { return QDir("/proc/self/fd").entryList().size(); };
        const int before = openFiles();
        faults = {true, isForGood, code, n, 0, ""};
        qstrncpy(faults.folder, qPrintable(scenario->place.path()), sizeof faults.folder);
        scenario->act();
        faults.isArmed = false;
        const bool isReached = faults.calls >= n;
        const bool isHurt = isReached && code != half && !scenario->failure.isEmpty();
        const QString told = scenario->failure;
        bool isFine = isHurt ? scenario->isWhole() : scenario->isDone();
        scenario->act();
        isFine = scenario->isDone() && isFine && openFiles() == before;
        if (!isFine)
            wrong = QString::asprintf(", call %d, errno %d, for good %d: ", n, code, isForGood) +
                    told + " / " + scenario->failure + " / " + scenario->files().join(' ');
        return isReached || !isFine;
    }
};

// --- what takes the place of the calls of the program and all its libraries ---

// The first of these are made before the sanitizers are ready for code of theirs.
#define CALL                                                                                       \
    extern "C" __attribute__((visibility("default"), no_sanitize("address", "undefined", "thread")))

#define TRANSFER(name, Bytes)                                                                      \
    CALL ssize_t name(int file, Bytes* bytes, size_t size)                                         \
    {                                                                                              \
        if (faults.fails(file))                                                                    \
            return -1;                                                                             \
        const bool isHalf = faults.code == half && faults.strikes(file);                           \
        return syscall(SYS_##name, file, bytes, isHalf ? (size + 1) / 2 : size);                   \
    }
TRANSFER(read, void)
TRANSFER(write, const void)

#define CHANGE(name, place, parameters, ...)                                                       \
    CALL int name parameters noexcept                                                              \
    {                                                                                              \
        return faults.fails(place) ? -1 : int(syscall(SYS_##name, __VA_ARGS__));                   \
    }
CHANGE(ftruncate, file, (int file, off_t size), file, size)
CHANGE(rename, to, (const char* from, const char* to), from, to)
CHANGE(renameat2, to, (int fromDir, const char* from, int toDir, const char* to, unsigned how),
       fromDir, from, toDir, to, how)
CHANGE(link, to, (const char* from, const char* to), from, to)
CHANGE(linkat, to, (int fromDir, const char* from, int toDir, const char* to, int how), fromDir,
       from, toDir, to, how)
CHANGE(unlink, path, (const char* path), path)

CALL int open(const char* path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = flags & (O_CREAT | O_TMPFILE) ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return faults.fails(path) ? -1 : int(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
CALL int open64(const char* path, int flags, ...) __attribute__((alias("open")));

// Nothing is really synced, which would take most of the time.
CALL int fsync(int file)
{
    return faults.fails(file) ? -1 : 0;
}
CALL int fdatasync(int file) __attribute__((alias("fsync")));

CALL int close(int file)
{
    const bool isStruck = faults.fails(file);
    const int closed = int(syscall(SYS_close, file));
    errno = isStruck ? faults.code : errno;
    return isStruck ? -1 : closed;
}

QTEST_GUILESS_MAIN(tst_FileFaults)
#include "tst_filefaults.moc"
