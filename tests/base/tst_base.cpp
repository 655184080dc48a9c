// SPDX-License-Identifier: MIT
#include "base/exception.h"
#include "base/hostcore.h"

#include <QProcess>
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

/// What a copy of this program in another place tells about its directories.
void answer(const QStringList& arguments)
{
    const QDir dir = ICore::getDir(arguments.at(2), arguments.at(3) == "app");
    QTextStream(stdout) << (ICore::isPortable() ? "portable " : "installed ")
                        << QDir(arguments.at(4)).relativeFilePath(dir.absolutePath())
                        << (dir.exists() ? "" : " missing");
}

QStringList deepStack(int depth)
{
    volatile int keep = depth; // no tail call
    const QStringList stack = depth ? deepStack(depth - 1) : Exception::getStack();
    return keep >= 0 ? stack : QStringList();
}

} // namespace

class TestBase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void exceptionKeepsMessageAndStack();
    void exceptionCrossesThreads();
    void coreIsNullWithoutHost();
    void hostCoreKeepsTablesAndJoins();
    void directories_data();
    void directories();
};

void TestBase::exceptionKeepsMessageAndStack()
{
    try {
        throw Exception(QStringLiteral("Цена %1"));
    } catch (const std::exception& caught) {
        const Exception copy(dynamic_cast<const Exception&>(caught));
        QCOMPARE(copy.message(), QStringLiteral("Цена %1"));
        QCOMPARE(QString::fromUtf8(copy.what()), copy.message());
        // Innermost first: the library's own frames come before the program's.
        const int library = copy.stack().indexOf(QRegularExpression(".*getStack.*"));
        QVERIFY(library >= 0);
        QVERIFY(copy.stack().indexOf(QRegularExpression(".*tst_base.*")) > library);

        const QtMessageHandler previous = qInstallMessageHandler(collectLog);
        copy.dump();
        qInstallMessageHandler(previous);
        QCOMPARE(logged, copy.stack()); // a message a frame
    }
    QCOMPARE(deepStack(3000).size(), 128);
}

void TestBase::exceptionCrossesThreads()
{
    QFuture<void> job = QtConcurrent::run([] { throw Exception(QStringLiteral("from the pool")); });
    QVERIFY_EXCEPTION_THROWN(job.waitForFinished(), Exception);
}

void TestBase::coreIsNullWithoutHost()
{
    QVERIFY(!ICore::instance());
    {
        HostCore core;
        ICore::setInstance(&core);
        {
            const HostCore other;
        }
        QCOMPARE(ICore::instance(), static_cast<ICore*>(&core)); // the other was not installed
    }
    QVERIFY(!ICore::instance());
}

void TestBase::hostCoreKeepsTablesAndJoins()
{
    const auto table = [](quintptr n) { return reinterpret_cast<Table*>(n); };
    const auto join = [](quintptr n) { return reinterpret_cast<TableJoin*>(n); };
    HostCore core;
    core.addTable("Orders", table(8));
    core.addTable("Orders", table(24));
    core.addTable("Deals", table(16));
    QCOMPARE(core.table("Orders"), table(24));
    QVERIFY(!core.hasTable("orders") && !core.table("orders"));
    QCOMPARE(core.tableNames(), QStringList({"Deals", "Orders"}));
    core.addTable("Orders", nullptr);
    core.removeTable("Deals");
    core.removeTable("Deals");
    QVERIFY(core.tableNames().isEmpty() && !core.hasTable("Orders"));

    for (TableJoin* joined : {join(16), join(8), join(16), join(0)})
        core.registerJoin(joined);
    QCOMPARE(core.joins(), QList<TableJoin*>({join(16), join(8)}));
    core.unregisterJoin(join(16));
    QCOMPARE(core.joins(), QList<TableJoin*>({join(8)}));

    QVERIFY(!core.compressTables());
    core.setCompressTables(true);
    QVERIFY(core.compressTables());
}

void TestBase::directories_data()
{
    QTest::addColumn<QString>("program"); // its directory
    QTest::addColumn<QString>("before");  // a file or, with a slash, a directory made before
    QTest::addColumn<QString>("sub");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* name, const QString& program, const QString& before,
                        const QString& sub, const QString& kind, const QString& expected) {
        QTest::newRow(name) << program << before << sub << kind << expected;
    };
    const QString bundle = "x.app/MacOS";
    const QString home = "installed home/tst_base";
    row("shipped", "bin", "bin/a/b/", "a/b", "app", "portable bin/a/b");
    row("shipped, missing", "bin", "", "a", "app", "portable bin");
    row("shipped, installed", "bin", "bin/.installed", "", "app", "installed bin");
    row("user", "bin", "", "", "user", "portable bin/user");
    row("user, sub", "bin", "", "a/b", "user", "portable bin/user/a/b");
    row("user, sub is a file", "bin", "bin/user/a", "a", "user", "portable bin/user");
    row("installed", "bin", "bin/.installed", "", "user", home + " missing");
    row("installed, sub", "bin", "bin/.installed", "a", "user", home + "/a");
    row("bundle, shipped", bundle, "x.app/Resources/a/", "a", "app", "portable x.app/Resources/a");
    row("bundle", bundle, "x.app/Resources/", "a", "user", "portable x.app/Resources/user/a");
    row("bundle, installed", bundle, "x.app/Resources/.installed", "a", "user", home + "/a");
    row("mark outside a bundle", "bin", "Resources/.installed", "", "app", "portable bin");
}

void TestBase::directories()
{
    QFETCH(QString, program);
    QFETCH(QString, before);
    QFETCH(QString, sub);
    QFETCH(QString, kind);
    const QTemporaryDir scratch;
    const QDir root(QDir(scratch.path()).canonicalPath());
    QVERIFY(root.mkpath(program) && root.mkpath(QFileInfo("./" + before).path()));
    QFile mark(root.filePath(before));
    if (!before.isEmpty() && !before.endsWith('/'))
        QVERIFY(mark.open(QIODevice::WriteOnly));
    program = root.filePath(program + "/tst_base");
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));

    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_DATA_HOME", root.filePath("home"));
    process.setProcessEnvironment(environment);
    process.start(program, {"--dir", sub, kind, root.path()});
    QVERIFY(process.waitForFinished());
    QTEST(QString::fromUtf8(process.readAllStandardOutput()), "expected");
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    application.setApplicationName("tst_base");
    if (argc == 5 && std::strcmp(argv[1], "--dir") == 0) {
        answer(application.arguments());
        return 0;
    }
    TestBase test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_base.moc"
