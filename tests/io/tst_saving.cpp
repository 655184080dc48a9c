// SPDX-License-Identifier: MIT
// Saving when things go wrong: every call to the file system fails in turn, and the old file must
// still be there, or the new one, whole.
#include "base/fileio_p.h" // excuse(private): the calls that are made to fail are behind it
#include "tables.h"

#include <cerrno>

namespace {

/// Fails the n-th call, as `code` says; n from 0, -1 for never.
class Failing : public LiveTable::FileIo
{
public:
    Failing(int n, int code)
        : left(n)
        , error(code)
    {
        setInstance(this);
    }
    ~Failing() override { setInstance(nullptr); }

    QStringList calls;
    int create(const QByteArray& path, const QByteArray& like) override
    {
        return fails("create") ? -error : FileIo::create(path, like);
    }
    qint64 write(int file, const char* data, qint64 size) override
    {
        if (fails("write"))
            return -error;
        return FileIo::write(file, data, qMin<qint64>(size, 3000)); // always in parts
    }
    int sync(int file) override { return fails("sync") ? -error : FileIo::sync(file); }
    int close(int file) override
    {
        const bool isBad = fails("close");
        return FileIo::close(file) < 0 || isBad ? -error : 0;
    }
    int rename(const QByteArray& from, const QByteArray& to) override
    {
        return fails("rename") ? -error : FileIo::rename(from, to);
    }
    int remove(const QByteArray& path) override
    {
        if (path.endsWith(".saving~"))
            return FileIo::remove(path);
        return fails("remove") ? -error : FileIo::remove(path);
    }
    int syncFolder(const QByteArray& path) override
    {
        return fails("syncFolder") ? -error : FileIo::syncFolder(path);
    }

private:
    bool fails(const char* call)
    {
        calls.append(call);
        return left-- == 0;
    }
    int left;
    const int error;
};

QStringList filesIn(const QDir& dir)
{
    return QDir(dir.path()).entryList(QDir::Files | QDir::Hidden);
}

} // namespace

class tst_Saving : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyCallFails()
    {
        FilledTable old("t", 9, 10, 1);
        FilledTable table("t", 9, 1000, 2);
        for (const bool wasCompressed : {false, true})
            for (const bool compress : {false, true})
                for (int n = 0; failsAt(n, old, wasCompressed, table, compress); ++n)
                    QVERIFY(!QTest::currentTestFailed());
    }

    void keepsTheOrderOfSteps()
    {
        const TestCore core;
        const QTemporaryDir folder;
        FilledTable table("t", 3, 10);
        putContent(folder.filePath("t.gz"), "old");
        Failing failing(-1, 0);
        TableIO(&table).write(QDir(folder.path()));
        QCOMPARE(failing.calls, QStringList({"create", "write", "sync", "rename", "close",
                                             "syncFolder", "remove", "syncFolder"}));
    }

    void exceptionsKeepTheOldFile()
    {
        const TestCore core;
        const QTemporaryDir folder;
        putContent(folder.filePath("t"), "old");
        FilledTable table("t", 2, 10);
        struct Thrower : FilterProgressTrue
        {
            bool operator()(int done, int) override { return done < 5 ? true : throw 42; }
        } thrower;
        QVERIFY_EXCEPTION_THROWN(TableIO(&table).write(thrower, QDir(folder.path()), true), int);
        QCOMPARE(contentOf(folder.filePath("t")), QByteArray("old"));
        QCOMPARE(filesIn(folder.path()), QStringList("t"));
        table.lock(); // it was let go of: from another thread this would be seen
        table.unlock();
    }

    void streamsCommitByThemselves()
    {
        for (const bool compress : {false, true}) {
            const TestCore core(compress);
            const QTemporaryDir folder;
            const QString path = folder.filePath("t");
            FilledTable table("t", 9, 500);
            {
                TableDataStreamWrite stream(path);
                TableIO(&table).write(stream, true);
                QVERIFY(!QFile::exists(path) && !QFile::exists(path + ".gz"));
            }
            TableDataStreamRead in(path);
            Table read("t");
            TableIO(&read).read(in, true);
            QCOMPARE(difference(table, read), QString());

            TableDataStreamWrite discarded(path);
            discarded << 42;
            discarded.discard();
            QVERIFY(!discarded.commit());
            TableDataStreamWrite failed(path);
            failed.setStatus(QDataStream::WriteFailed);
            QVERIFY(!failed.commit());
            QVERIFY(!failed.errorString().isNull());
            {
                Failing failing(1, EIO); // a write, of which the stream then knows no more
                TableDataStreamWrite forgetful(path);
                forgetful << QByteArray(1 << 21, 'x');
                forgetful.resetStatus();
                QVERIFY(!forgetful.commit());
            }
            QCOMPARE(filesIn(folder.path()), QStringList(compress ? "t.gz" : "t"));
            for (const char* name : {"d", "e.gz"}) { // folders are no files
                QVERIFY(QDir(folder.path()).mkdir(name));
                const TableDataStreamRead unread(folder.filePath(QString(name).left(1)));
                QVERIFY(!unread.errorString().isEmpty());
                QVERIFY(QDir(folder.path()).rmdir(name));
            }
            // Nothing written is an empty file, in either kind.
            TableDataStreamWrite empty(path);
            QVERIFY(empty.commit() && empty.commit());
            QCOMPARE(QFileInfo(compress ? path + ".gz" : path).size(), qint64(0));
        }
    }

    // LIVETABLE_FULL_DISK names a directory on a file system of a few hundred kilobytes: see
    // scripts/full-disk.sh.
    void fullDisk()
    {
        const QString place = qEnvironmentVariable("LIVETABLE_FULL_DISK");
        if (place.isEmpty())
            QSKIP("needs a small file system");
        TestCore core;
        const QDir dir(place);
        FilledTable old("t", 9, 10), table("t", 9, 20000, 2);
        for (const bool compress : {false, true}) {
            core.setCompressTables(compress);
            TableIO(&old).write(dir);
            TableIO io(&table);
            io.write(dir);
            QCOMPARE(io.status(), TableIO::WriteFailed);
            QVERIFY2(io.errorString().contains("No space left"), qPrintable(io.errorString()));
            Table read("t");
            TableIO(&read).read(dir, true);
            QCOMPARE(difference(old, read), QString());
            QCOMPARE(filesIn(dir), QStringList(compress ? "t.gz" : "t"));
        }
    }

private:
    /// Whether saving the table over the old one comes to an n-th call, which then fails.
    bool failsAt(int n, Table& old, bool wasCompressed, Table& table, bool compress)
    {
        const QTemporaryDir folder;
        const QDir dir(folder.path());
        {
            const TestCore core(wasCompressed);
            TableIO(&old).write(dir);
        }
        const TestCore core(compress);
        TableIO io(&table);
        bool isReached = true;
        bool isRenamed = false;
        {
            Failing failing(n, EIO);
            io.write(dir);
            isReached = failing.calls.size() > n;
            isRenamed = failing.calls.mid(0, n).contains("rename");
        }
        Table read("t");
        TableIO in(&read);
        in.setStrict(true);
        in.read(dir, true);
        // While both are there the plain file is the table's.
        const bool isNew = isRenamed && !(compress && filesIn(dir).contains("t"));
        const QString wrong = difference(isNew || !isReached ? table : old, read);
        [&] {
            QCOMPARE(in.status(), TableIO::Ok);
            QCOMPARE(wrong, QString());
            QCOMPARE(io.status(), isReached ? TableIO::WriteFailed : TableIO::Ok);
            QCOMPARE(io.errorString().section(": ", 1),
                     QString(isReached ? "Input/output error" : ""));
            QVERIFY(filesIn(dir).filter("saving").isEmpty());
            QVERIFY(isReached || filesIn(dir) == QStringList(compress ? "t.gz" : "t"));
        }();
        return isReached;
    }
};

QTEST_MAIN(tst_Saving)
#include "tst_saving.moc"
