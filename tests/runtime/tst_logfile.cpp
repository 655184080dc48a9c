// SPDX-License-Identifier: MIT
#include "runtime/logfile.h"
#include "runtime/watchdog.h"

#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList received;
std::atomic<int> receivedCount{0};

void countMessage(QtMsgType, const QMessageLogContext&, const QString&)
{
    ++receivedCount;
}

void keepMessage(QtMsgType, const QMessageLogContext&, const QString& text)
{
    received.append(text);
}

/// A handler that logs on its part for each message.
void talkBack(QtMsgType, const QMessageLogContext&, const QString& text)
{
    received.append(text);
    qInfo("echo of %s", qUtf8Printable(text));
}

QtMessageHandler laterPrevious = nullptr;

void passOn(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    received.append("later " + text);
    laterPrevious(type, context, text);
}

/// The lines of a log without the time before each, which is checked.
QStringList messagesOf(const QString& path)
{
    QStringList result;
    const QRegularExpression stamp("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z ");
    for (QString line : QString::fromUtf8(contents(path)).split('\n', Qt::SkipEmptyParts)) {
        if (!line.startsWith('\t') && !line.contains(stamp))
            result.append("no time: " + line);
        else
            result.append(line.remove(stamp));
    }
    return result;
}

} // namespace

class TestLogFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void names_data();
    void names();
    void rotation_data();
    void rotation();
    void isObjectAndStream();
    void textIsUtf8();
    void unopenable();
    void messages();
    void handlersBefore_data();
    void handlersBefore();
    void secondFileTakesOver();
    void handlerInstalledLater();
    void threadsDoNotMix();
    void removedWhileThreadsLog();

private:
    QString path(const QString& name) const { return dir->filePath(name); }

    std::unique_ptr<Watchdog> watchdog;
    std::unique_ptr<QTemporaryDir> dir;
    QtMessageHandler testHandler = nullptr;
};

void TestLogFile::init()
{
    watchdog.reset(new Watchdog(QTest::currentTestFunction(), 300));
    dir.reset(new QTemporaryDir);
    QVERIFY(dir->isValid());
    received.clear();
    receivedCount = 0;
    testHandler = qInstallMessageHandler(keepMessage);
}

void TestLogFile::cleanup()
{
    QVERIFY(qInstallMessageHandler(testHandler) == keepMessage); // every test gave the log back
    watchdog.reset();
}

void TestLogFile::names_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("first");
    QTest::newRow("plain") << "dir/app.log"
                           << "dir/app.1.log";
    QTest::newRow("absolute") << "/var/log/app.log"
                              << "/var/log/app.1.log";
    QTest::newRow("two suffixes") << "dir/app.old.log"
                                  << "dir/app.old.1.log";
    QTest::newRow("no suffix") << "dir/log"
                               << "dir/log.1.";
    QTest::newRow("no folder") << "app.log"
                               << "./app.1.log";
    QTest::newRow("place markers") << "%2 %3/%1.%2"
                                   << "%2 %3/%1.1.%2";
    QTest::newRow("suffix only") << "dir/.log"
                                 << "dir/.1.log";
}

void TestLogFile::names()
{
    QFETCH(QString, name);
    QFETCH(QString, first);
    QCOMPARE(LogFile::rotateName(QFileInfo(name), 1), first);
}

void TestLogFile::rotation_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("before"); // what is there; a file's text is its name
    QTest::addColumn<QStringList>("after");  // name=text
    const auto row = [](const char* title, const char* name, const QStringList& before,
                        const QStringList& after) {
        QTest::newRow(title) << name << before << after;
    };
    row("nothing there", "app.log", {}, {"app.log="});
    row("old logs alone stay", "app.log", {"app.1.log", "app.5.log"},
        {"app.1.log=app.1.log", "app.5.log=app.5.log", "app.log="});
    row("first rotation", "app.log", {"app.log"}, {"app.1.log=app.log", "app.log="});
    row("all there", "app.log",
        {"app.log", "app.1.log", "app.2.log", "app.3.log", "app.4.log", "app.5.log"},
        {"app.1.log=app.log", "app.2.log=app.1.log", "app.3.log=app.2.log", "app.4.log=app.3.log",
         "app.5.log=app.4.log", "app.log="});
    row("a gap", "app.log", {"app.log", "app.2.log"},
        {"app.1.log=app.log", "app.3.log=app.2.log", "app.log="});
    row("others stay", "app.log", {"app.log", "app.6.log", "app.0.log", "app.log.1", "bpp.1.log"},
        {"app.0.log=app.0.log", "app.1.log=app.log", "app.6.log=app.6.log",
         "app.log=", "app.log.1=app.log.1", "bpp.1.log=bpp.1.log"});
    row("no suffix", "log", {"log", "log.1."}, {"log=", "log.1.=log", "log.2.=log.1."});
    row("place markers", "%1%2.log", {"%1%2.log"}, {"%1%2.1.log=%1%2.log", "%1%2.log="});
    // A folder cannot be deleted as a file and nothing can be renamed onto it.
    row("a folder at 5", "app.log", {"app.log", "app.3.log", "app.4.log", "app.5.log/"},
        {"app.1.log=app.log", "app.3.log=app.3.log", "app.4.log=app.4.log", "app.log="});
}

void TestLogFile::rotation()
{
    QFETCH(QString, name);
    QFETCH(QStringList, before);
    QFETCH(QStringList, after);
    for (const QString& existing : before) {
        if (existing.endsWith('/')) {
            QVERIFY(QDir(dir->path()).mkdir(existing) && QDir(path(existing)).mkdir("inside"));
            continue;
        }
        QFile file(path(existing));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(existing.toUtf8()) >= 0);
    }
    {
        const LogFile log(path(name), nullptr);
        QVERIFY(log.device() && log.device()->isOpen());
        QCOMPARE(int(log.device()->openMode()), 0x16);
    }
    QStringList found;
    const auto files = QDir(dir->path()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    for (const QString& entry : files)
        found.append(entry + '=' + contents(path(entry)));
    found.sort();
    after.sort();
    QCOMPARE(found, after);
}

void TestLogFile::isObjectAndStream()
{
    QObject parent;
    LogFile* log = new LogFile(path("app.log"), &parent);
    QCOMPARE(log->parent(), &parent);
    QCOMPARE(log->metaObject()->className(), "LogFile");
    QCOMPARE(log->qt_metacast("LogFile"), static_cast<void*>(log));
    QCOMPARE(log->qt_metacast("QTextStream"), static_cast<void*>(static_cast<QTextStream*>(log)));
    QCOMPARE(log->metaObject()->methodCount(), QObject::staticMetaObject.methodCount());
    QCOMPARE(log->metaObject()->propertyCount(), QObject::staticMetaObject.propertyCount());
}

void TestLogFile::textIsUtf8()
{
    const QString text = QString::fromUtf8("цена ∑ 10 €");
    QTextCodec* const locale = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    {
        LogFile log(path("app.log"), nullptr);
        log << text << ' ' << 5 << '\n'; // not flushed by hand
    }
    QTextCodec::setCodecForLocale(locale);
    QCOMPARE(contents(path("app.log")), text.toUtf8() + " 5\n");
}

void TestLogFile::unopenable()
{
    {
        LogFile log(path("missing/app.log"), nullptr);
        QVERIFY(!log.device());
        log << "lost" << Qt::endl;
        QVERIFY(!log.installMessageHandler());
        qInfo("not taken");
        QVERIFY(received.contains("not taken"));
    }
    QVERIFY(!QFile::exists(path("missing")));
}

void TestLogFile::messages()
{
    LogFile log(path("app.log"), nullptr);
    QVERIFY(log.installMessageHandler());
    qDebug("quiet");
    qInfo("two\nlines");
    qWarning("%s", "цена");
    qCritical().noquote() << "percent %1";
    qCWarning(QLoggingCategory("board")) << "tick";
    log.removeMessageHandler();
    qInfo("after");
    // Written at once, while the file is still open.
    QCOMPARE(messagesOf(path("app.log")), QStringList({"D quiet", "I two", "\tlines", "W цена",
                                                       "C percent %1", "W board: tick"}));
    QCOMPARE(received, QStringList("after"));
    log.removeMessageHandler();
}

void TestLogFile::handlersBefore_data()
{
    QTest::addColumn<bool>("chained");
    QTest::addColumn<bool>("talksBack");
    QTest::addColumn<QStringList>("inFile");
    QTest::addColumn<QStringList>("passedOn");
    const QStringList one("I one");
    QTest::newRow("file only") << false << false << one << QStringList();
    QTest::newRow("chained") << true << false << one << QStringList("one");
    QTest::newRow("chained to one that logs")
        << true << true << one << QStringList("one"); // the echo is left to Qt
}

void TestLogFile::handlersBefore()
{
    QFETCH(bool, chained);
    QFETCH(bool, talksBack);
    QFETCH(QStringList, inFile);
    QFETCH(QStringList, passedOn);
    qInstallMessageHandler(talksBack ? talkBack : keepMessage);
    {
        LogFile log(path("app.log"), nullptr);
        QVERIFY(log.installMessageHandler(chained));
        qInfo("one");
    }
    QVERIFY(qInstallMessageHandler(keepMessage) == (talksBack ? talkBack : keepMessage));
    QCOMPARE(messagesOf(path("app.log")), inFile);
    QCOMPARE(received, passedOn);
}

void TestLogFile::secondFileTakesOver()
{
    LogFile first(path("first.log"), nullptr);
    {
        LogFile second(path("second.log"), nullptr);
        first.installMessageHandler();
        qInfo("one");
        second.installMessageHandler();
        qInfo("two");
        first.removeMessageHandler(); // not the one that gets it
        qInfo("three");
    }
    qInfo("four");
    QCOMPARE(messagesOf(path("first.log")), QStringList("I one"));
    QCOMPARE(messagesOf(path("second.log")), QStringList({"I two", "I three"}));
    QCOMPARE(received, QStringList("four"));
}

void TestLogFile::handlerInstalledLater()
{
    {
        LogFile log(path("app.log"), nullptr);
        log.installMessageHandler();
        laterPrevious = qInstallMessageHandler(passOn);
        qInfo("one");
    }
    qInfo("two"); // passes through the dead log's handler
    QCOMPARE(received, QStringList({"later one", "later two", "two"}));
    LogFile again(path("again.log"), nullptr);
    QVERIFY(!again.installMessageHandler()); // between the two it could be called in a circle
    qInfo("three");
    qInstallMessageHandler(laterPrevious);
    QVERIFY(again.installMessageHandler());
    qInfo("four");
    again.removeMessageHandler();
    QCOMPARE(messagesOf(path("again.log")), QStringList("I four"));
    QCOMPARE(messagesOf(path("app.log")), QStringList("I one"));
    QCOMPARE(received.mid(3), QStringList({"later three", "three"}));
}

void TestLogFile::threadsDoNotMix()
{
    constexpr int threadCount = 4;
    constexpr int lineCount = 50000; // each
    qInstallMessageHandler(countMessage);
    {
        LogFile log(path("app.log"), nullptr);
        QVERIFY(log.installMessageHandler(true));
        std::vector<std::thread> threads;
        for (int t = 0; t < threadCount; ++t)
            threads.emplace_back([t] {
                for (int i = 0; i < lineCount; ++i) {
                    // Of all lengths, now and then longer than any buffer on the way.
                    const int length = i % 1000 == 0 ? 40000 : i % 97;
                    qInfo("%d %d %s end", t, i, QByteArray(length, char('a' + t)).constData());
                }
            });
        for (std::thread& thread : threads)
            thread.join();
    }
    QVERIFY(qInstallMessageHandler(keepMessage) == countMessage);
    QCOMPARE(receivedCount.load(), threadCount * lineCount);

    int next[threadCount] = {};
    QFile file(path("app.log"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    for (QByteArray line = file.readLine(); !line.isEmpty(); line = file.readLine()) {
        const QList<QByteArray> words = line.split(' '); // time, kind, thread, number, text, end
        QVERIFY2(words.size() == 6 && words[1] == "I" && words[5] == "end\n", line.left(200));
        const int t = words[2].toInt();
        QVERIFY(t >= 0 && t < threadCount);
        const int i = next[t]++;
        QCOMPARE(words[3].toInt(), i);
        QCOMPARE(words[4], QByteArray(i % 1000 == 0 ? 40000 : i % 97, char('a' + t)));
    }
    for (int count : next)
        QCOMPARE(count, lineCount);
}

// Logs come and go while threads log: every message is in a file or with the handler before.
void TestLogFile::removedWhileThreadsLog()
{
    constexpr int lineCount = 5000;
    qInstallMessageHandler(countMessage);
    std::atomic<int> running{2};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&running] {
            for (int i = 0; i < lineCount; ++i)
                qInfo("line");
            --running;
        });
    int inFiles = 0;
    for (int n = 0; running > 0 || n == 0; ++n) {
        const QString name = path(QString("app%1.log").arg(n));
        {
            LogFile log(name, nullptr);
            log.installMessageHandler();
            std::this_thread::yield();
        }
        inFiles += contents(name).count('\n');
        QFile::remove(name);
    }
    for (std::thread& thread : threads)
        thread.join();
    QVERIFY(qInstallMessageHandler(keepMessage) == countMessage);
    QCOMPARE(inFiles + receivedCount, 2 * lineCount);
}

QTEST_GUILESS_MAIN(TestLogFile)

#include "tst_logfile.moc"
