// SPDX-License-Identifier: MIT
#include "runtime/logfile.h"
#include "support/files.h"

#include <QDeadlineTimer>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

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

QtMessageHandler inner = nullptr;

void passOn(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    inner(type, context, text);
}

} // namespace

class TestLogFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        dir.reset(new QTemporaryDir);
        QVERIFY(dir->isValid());
        received.clear();
        receivedCount = 0;
        testHandler = qInstallMessageHandler(keepMessage);
    }

    void cleanup()
    {
        QVERIFY(qInstallMessageHandler(testHandler) == keepMessage); // every test gave the log back
    }

    void rotation()
    {
        // What is there before, a file's text being its name, and afterwards, each as name=text.
        const std::tuple<QString, QString, QString> rows[] = {
            {"app.log", "", "app.log="},
            {"app.log", "app.1.log app.5.log", // old ones alone stay
             "app.1.log=app.1.log app.5.log=app.5.log app.log="},
            {"app.log", "app.log", "app.1.log=app.log app.log="},
            {"app.log", "app.log app.1.log app.2.log app.3.log app.4.log app.5.log",
             "app.1.log=app.log app.2.log=app.1.log app.3.log=app.2.log app.4.log=app.3.log "
             "app.5.log=app.4.log app.log="},
            {"app.log", "app.log app.2.log", // a gap
             "app.1.log=app.log app.3.log=app.2.log app.log="},
            {"app.log", "app.log app.6.log app.0.log app.log.1 bpp.1.log", // others stay
             "app.0.log=app.0.log app.1.log=app.log app.6.log=app.6.log app.log= "
             "app.log.1=app.log.1 bpp.1.log=bpp.1.log"},
            {"log", "log log.1.", "log= log.1.=log log.2.=log.1."},
            {"%1%2.log", "%1%2.log", "%1%2.1.log=%1%2.log %1%2.log="},
            // A folder cannot be deleted as a file and nothing can be renamed onto it.
            {"app.log", "app.log app.3.log app.4.log app.5.log/",
             "app.1.log=app.log app.3.log=app.3.log app.4.log=app.4.log app.log="},
        };
        for (const auto& [name, before, after] : rows) {
            dir.reset(new QTemporaryDir);
            for (const QString& existing : before.split(' ', Qt::SkipEmptyParts)) {
                const bool isFolder = existing.endsWith('/');
                putContent(path(existing) + (isFolder ? "inside" : ""), existing.toUtf8());
            }
            {
                const LogFile log(path(name), nullptr);
                QVERIFY(log.device() && log.device()->isOpen());
                QCOMPARE(int(log.device()->openMode()), 0x16);
            }
            const QStringList wanted = after.split(' ');
            QStringList found;
            for (const QString& entry : QDir(dir->path()).entryList(QDir::Files | QDir::Hidden))
                found.append(entry + '=' + contentOf(path(entry)));
            QCOMPARE(QSet<QString>(found.begin(), found.end()),
                     QSet<QString>(wanted.begin(), wanted.end()));
        }
    }

    void textIsUtf8()
    {
        const QString text = QString::fromUtf8("цена ∑ 10 €");
        QTextCodec* const locale = QTextCodec::codecForLocale();
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
        {
            LogFile log(path("app.log"), nullptr);
            log << text << ' ' << 5 << '\n'; // not flushed by hand
            log.flush();
            QVERIFY(log.installMessageHandler());
            qInfo("two\nlines");
        }
        QTextCodec::setCodecForLocale(locale);
        const QByteArray found = contentOf(path("app.log"));
        QVERIFY2(found.startsWith(text.toUtf8() + " 5\n"), found);
        QVERIFY2(found.endsWith(" I two\n\tlines\n"), found);
    }

    void unopenable()
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

    void threadsDoNotMix()
    {
        constexpr int threadCount = 4;
        constexpr int lineCount = 50000; // each
        const auto lineOf = [](int t, int i) {
            // Of all lengths, now and then longer than any buffer on the way.
            const QByteArray text(i % 1000 == 0 ? 40000 : i % 97, char('a' + t));
            return QByteArray::number(t) + ' ' + QByteArray::number(i) + ' ' + text;
        };
        qInstallMessageHandler(countMessage);
        {
            LogFile log(path("app.log"), nullptr);
            QVERIFY(log.installMessageHandler(true));
            std::vector<std::thread> threads;
            for (int t = 0; t < threadCount; ++t)
                threads.emplace_back([&lineOf, t] {
                    for (int i = 0; i < lineCount; ++i)
                        qInfo("%s", lineOf(t, i).constData());
                });
            for (std::thread& thread : threads)
                thread.join();
        }
        QVERIFY(qInstallMessageHandler(keepMessage) == countMessage);
        QCOMPARE(receivedCount.load(), threadCount * lineCount);

        int next[threadCount] = {};
        const QList<QByteArray> lines = contentOf(path("app.log")).split('\n');
        QCOMPARE(lines.size(), threadCount * lineCount + 1); // one empty, behind the last
        for (int n = 0; n < threadCount * lineCount; ++n) {
            const QByteArray line = lines.at(n).mid(lines.at(n).indexOf(" I ") + 3);
            const int t = qBound(0, line.left(1).toInt(), threadCount - 1);
            QCOMPARE(line, lineOf(t, next[t]++));
        }
    }

    // Logs come and go while threads log: every message is in a file or with the handler before.
    void removedWhileThreadsLog()
    {
        qInstallMessageHandler(countMessage);
        std::atomic<bool> isOver{false};
        std::atomic<int> sent{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 2; ++t)
            threads.emplace_back([&isOver, &sent] {
                for (; !isOver; ++sent)
                    qInfo("line");
            });
        int inFiles = 0;
        const QDeadlineTimer deadline(60000); // for a log that never gets a message
        for (int n = 0; n < 100 || (inFiles == 0 && !deadline.hasExpired()); ++n) {
            const QString name = path(QString("app%1.log").arg(n));
            {
                LogFile log(name, nullptr);
                log.installMessageHandler();
                std::this_thread::yield();
            }
            inFiles += contentOf(name).count('\n');
            QFile::remove(name);
        }
        isOver = true;
        for (std::thread& thread : threads)
            thread.join();
        QVERIFY(qInstallMessageHandler(keepMessage) == countMessage);
        QCOMPARE(inFiles + receivedCount, sent.load());
        QVERIFY(inFiles > 0);
    }

    // Of two logs that took Qt's log from each other.
    void everyOrderOfDeaths()
    {
        for (int i = 0; i < 4; ++i) {
            const int taker = i / 2;
            const int first = i % 2;
            received.clear();
            std::unique_ptr<LogFile> logs[2];
            for (const int n : {1 - taker, taker}) {
                logs[n].reset(new LogFile(path(QString::number(n) + ".log")));
                QVERIFY(logs[n]->installMessageHandler());
            }
            for (const int n : {first, 1 - first}) {
                qInfo("told");
                logs[n].reset();
            }
            qInfo("told");
            const int toTaker = taker == first ? 1 : 2;
            QCOMPARE(contentOf(path(QString::number(taker) + ".log")).count("told"), toTaker);
            QCOMPARE(contentOf(path(QString::number(1 - taker) + ".log")), QByteArray());
            QCOMPARE(received.size(), 3 - toTaker);
        }
    }

    // The last one: a handler that was removed below another one is not installed over a third,
    // since that might call it.
    void removedBelowAnotherHandler()
    {
        {
            LogFile log(path("app.log"), nullptr);
            QVERIFY(log.installMessageHandler());
            inner = qInstallMessageHandler(passOn);
        }
        qInfo("late"); // comes to a handler without a log
        QVERIFY(qInstallMessageHandler(keepMessage) == passOn);
        QCOMPARE(received, QStringList("late"));
    }

private:
    QString path(const QString& name) const { return dir->filePath(name); }

    std::unique_ptr<QTemporaryDir> dir;
    QtMessageHandler testHandler = nullptr;
};

QTEST_GUILESS_MAIN(TestLogFile)

#include "tst_logfile.moc"
