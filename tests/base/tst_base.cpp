// SPDX-License-Identifier: MIT
#include "base/exception.h"
#include "base/hostcore.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtConcurrent>
#include <QtTest>

#include <cstring>

namespace {

QStringList logged;

void collectLog(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtDebugMsg && std::strcmp(context.category, "default") == 0)
        logged.append(text);
}

Table* fakeTable(quintptr n)
{
    return reinterpret_cast<Table*>(n);
}

TableJoin* fakeJoin(quintptr n)
{
    return reinterpret_cast<TableJoin*>(n);
}

/// What the copy of this program at `program` answers for ICore::getDir(sub, app), below `home`.
/// The first line tells whether it found itself portable, the second is the directory.
QStringList askCopy(const QString& program, const QString& home, const QString& sub, bool app)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_DATA_HOME", home);
    process.setProcessEnvironment(environment);
    process.start(program, {"--dir", sub, app ? "app" : "user"});
    if (!process.waitForFinished())
        return {};
    return QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
}

int answerDir(const QStringList& arguments)
{
    const QDir dir = ICore::getDir(arguments.at(2), arguments.at(3) == "app");
    QTextStream(stdout) << (ICore::isPortable() ? "portable" : "installed") << '\n'
                        << dir.absolutePath() << '\n';
    return 0;
}

} // namespace

class TestBase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void exceptionKeepsMessageAndStack();
    void exceptionDumpsOneMessageAFrame();
    void exceptionCrossesThreads();
    void stackIsLimited();

    void coreIsNullWithoutHost();
    void hostCoreKeepsTablesByExactName();
    void hostCoreKeepsJoinsOnce();

    void directories_data();
    void directories();
};

void TestBase::exceptionKeepsMessageAndStack()
{
    try {
        throw Exception(QStringLiteral("Цена %1"));
    } catch (const std::exception& caught) {
        QCOMPARE(QString::fromUtf8(caught.what()), QStringLiteral("Цена %1"));
        const auto* own = dynamic_cast<const Exception*>(&caught);
        QVERIFY(own);
        QCOMPARE(own->message(), QStringLiteral("Цена %1"));
        QVERIFY(own->stack().size() > 2);
        // Innermost first: the library's own frames come before the program's.
        const int library = own->stack().indexOf(QRegularExpression(".*getStack.*"));
        QVERIFY(library >= 0);
        QVERIFY(own->stack().indexOf(QRegularExpression(".*tst_base.*")) > library);

        const Exception copy(*own);
        Exception assigned(QStringLiteral("other"));
        assigned = copy;
        QCOMPARE(assigned.message(), own->message());
        QCOMPARE(assigned.stack(), own->stack());
        QCOMPARE(assigned.what(), own->what());
    }
    QCOMPARE(*Exception(QString()).what(), '\0');
}

void TestBase::exceptionDumpsOneMessageAFrame()
{
    const Exception e(QStringLiteral("x"));
    logged.clear();
    const QtMessageHandler previous = qInstallMessageHandler(collectLog);
    e.dump();
    qInstallMessageHandler(previous);
    QCOMPARE(logged, e.stack());
}

void TestBase::exceptionCrossesThreads()
{
    QFuture<void> job = QtConcurrent::run([] { throw Exception(QStringLiteral("from the pool")); });
    bool caught = false;
    try {
        job.waitForFinished();
    } catch (const Exception& e) {
        caught = true;
        QCOMPARE(e.message(), QStringLiteral("from the pool"));
        QVERIFY(!e.stack().isEmpty());
    }
    QVERIFY(caught);
}

void TestBase::stackIsLimited()
{
    struct Deep
    {
        static QStringList go(int depth)
        {
            volatile int keep = depth; // no tail call
            const QStringList below = depth ? go(depth - 1) : Exception::getStack();
            return keep >= 0 ? below : QStringList();
        }
    };
    QCOMPARE(Deep::go(3000).size(), 128);
}

void TestBase::coreIsNullWithoutHost()
{
    QVERIFY(!ICore::instance());
    {
        HostCore core;
        QVERIFY(!ICore::instance());
        ICore::setInstance(&core);
        QCOMPARE(ICore::instance(), static_cast<ICore*>(&core));
        {
            const HostCore other;
        }
        QCOMPARE(ICore::instance(), static_cast<ICore*>(&core)); // the other was not installed
    }
    QVERIFY(!ICore::instance());
}

void TestBase::hostCoreKeepsTablesByExactName()
{
    HostCore core;
    core.addTable("Orders", fakeTable(8));
    core.addTable("Deals", fakeTable(16));
    QVERIFY(core.hasTable("Orders"));
    QVERIFY(!core.hasTable("orders"));
    QVERIFY(!core.table("orders"));
    QCOMPARE(core.tableNames(), QStringList({"Deals", "Orders"}));

    core.addTable("Orders", fakeTable(24));
    QCOMPARE(core.table("Orders"), fakeTable(24));
    core.addTable("Orders", nullptr);
    QVERIFY(!core.hasTable("Orders"));
    core.removeTable("Deals");
    core.removeTable("Deals");
    QVERIFY(core.tableNames().isEmpty());

    QVERIFY(!core.compressTables());
    core.setCompressTables(true);
    QVERIFY(core.compressTables());
}

void TestBase::hostCoreKeepsJoinsOnce()
{
    HostCore core;
    core.registerJoin(fakeJoin(16));
    core.registerJoin(fakeJoin(8));
    core.registerJoin(fakeJoin(16));
    core.registerJoin(nullptr);
    QCOMPARE(core.joins(), QList<TableJoin*>({fakeJoin(16), fakeJoin(8)}));
    core.unregisterJoin(fakeJoin(16));
    core.unregisterJoin(fakeJoin(16));
    QCOMPARE(core.joins(), QList<TableJoin*>({fakeJoin(8)}));
}

void TestBase::directories_data()
{
    QTest::addColumn<QString>("programDir"); // below the scratch directory
    QTest::addColumn<QString>("mark");       // where ".installed" lies, empty for nowhere
    QTest::addColumn<QString>("madeBefore"); // a path that exists already, empty for none
    QTest::addColumn<QString>("sub");
    QTest::addColumn<bool>("app");
    QTest::addColumn<bool>("portable");
    QTest::addColumn<QString>("expected"); // below the scratch directory
    QTest::addColumn<bool>("exists");

    const QString home = "home/tst_base";
    QTest::newRow("shipped, no sub") << "bin"
                                     << ""
                                     << ""
                                     << "" << true << true << "bin" << true;
    QTest::newRow("shipped, sub") << "bin"
                                  << ""
                                  << "bin/a/b"
                                  << "a/b" << true << true << "bin/a/b" << true;
    QTest::newRow("shipped, missing sub is not made") << "bin"
                                                      << ""
                                                      << ""
                                                      << "a" << true << true << "bin" << true;
    QTest::newRow("shipped, installed") << "bin"
                                        << "bin/.installed"
                                        << "bin/a"
                                        << "a" << true << false << "bin/a" << true;
    QTest::newRow("portable user, no sub") << "bin"
                                           << ""
                                           << ""
                                           << "" << false << true << "bin/user" << true;
    QTest::newRow("portable user, sub is made") << "bin"
                                                << ""
                                                << ""
                                                << "a/b" << false << true << "bin/user/a/b" << true;
    QTest::newRow("portable user, sub is a file") << "bin"
                                                  << ""
                                                  << "bin/user/a#"
                                                  << "a" << false << true << "bin/user" << true;
    QTest::newRow("installed user, no sub") << "bin"
                                            << "bin/.installed"
                                            << ""
                                            << "" << false << false << home << false;
    QTest::newRow("installed user, sub is made") << "bin"
                                                 << "bin/.installed"
                                                 << ""
                                                 << "a" << false << false << home + "/a" << true;
    QTest::newRow("bundle, shipped") << "x.app/MacOS"
                                     << ""
                                     << "x.app/Resources/a"
                                     << "a" << true << true << "x.app/Resources/a" << true;
    QTest::newRow("bundle, user") << "x.app/MacOS"
                                  << ""
                                  << "x.app/Resources"
                                  << "a" << false << true << "x.app/Resources/user/a" << true;
    QTest::newRow("bundle, mark in Resources") << "x.app/MacOS"
                                               << "x.app/Resources/.installed"
                                               << ""
                                               << "" << false << false << home << false;
    QTest::newRow("mark in Resources counts in a bundle only")
        << "bin"
        << "Resources/.installed"
        << ""
        << "" << true << true << "bin" << true;
}

void TestBase::directories()
{
    QFETCH(QString, programDir);
    QFETCH(QString, mark);
    QFETCH(QString, madeBefore);
    QFETCH(QString, sub);
    QFETCH(bool, app);
    QFETCH(bool, portable);
    QFETCH(QString, expected);
    QFETCH(bool, exists);

    const QTemporaryDir scratch;
    const QDir root(QDir(scratch.path()).canonicalPath());
    const auto makeFile = [&root](const QString& path) {
        QVERIFY(root.mkpath(QFileInfo(path).path()));
        QFile file(root.filePath(path));
        QVERIFY(file.open(QIODevice::WriteOnly));
    };
    if (!mark.isEmpty())
        makeFile(mark);
    if (madeBefore.endsWith('#'))
        makeFile(madeBefore.chopped(1));
    else if (!madeBefore.isEmpty())
        QVERIFY(root.mkpath(madeBefore));
    QVERIFY(root.mkpath(programDir));
    const QString program = root.filePath(programDir + "/tst_base");
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));

    const QStringList answer = askCopy(program, root.filePath("home"), sub, app);
    QCOMPARE(answer, QStringList({portable ? "portable" : "installed", root.filePath(expected)}));
    QCOMPARE(QFileInfo(answer.at(1)).isDir(), exists);
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    application.setApplicationName("tst_base");
    if (argc == 4 && std::strcmp(argv[1], "--dir") == 0)
        return answerDir(application.arguments());
    TestBase test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_base.moc"
