// SPDX-License-Identifier: MIT
// Saving when things go wrong: the old file must still be there, or the new one, whole. That every
// call of the system fails in turn is in tst_filefaults.cpp.
#include "base/fileio_p.h" // excuse(private): the calls that are made to fail are behind it
#include "tables.h"

#include <cerrno>

namespace {

/// Writes down the calls, and fails the n-th if that is a write; n from 0, -1 for never.
class Failing : public LiveTable::FileIo
{
public:
    explicit Failing(int n)
        : failing(n)
    {
        setInstance(this);
    }
    ~Failing() override { setInstance(nullptr); }

    QStringList calls;
    int create(const QByteArray& path, const QByteArray& like) override
    {
        return note("create"), FileIo::create(path, like);
    }
    qint64 write(int file, const char* data, qint64 size) override
    {
        return note("write") == failing ? -EIO : FileIo::write(file, data, size);
    }
    int sync(int file) override { return note("sync"), FileIo::sync(file); }
    int close(int file) override { return note("close"), FileIo::close(file); }
    int rename(const QByteArray& from, const QByteArray& to) override
    {
        return note("rename"), FileIo::rename(from, to);
    }
    int remove(const QByteArray& path) override { return note("remove"), FileIo::remove(path); }
    int syncFolder(const QByteArray& path) override
    {
        return note("syncFolder"), FileIo::syncFolder(path);
    }

private:
    int note(const char* call)
    {
        calls.append(call);
        return calls.size() - 1;
    }
    const int failing;
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
    void keepsTheOrderOfSteps()
    {
        const TestCore core;
        const QTemporaryDir folder;
        FilledTable table("t", 3, 10);
        putContent(folder.filePath("t.gz"), "old");
        Failing failing(-1);
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
                Failing failing(1); // a write, of which the stream then knows no more
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
};

QTEST_MAIN(tst_Saving)
#include "tst_saving.moc"
