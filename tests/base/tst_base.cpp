// SPDX-License-Identifier: MIT
#include "base/exception.h"
#include "base/hostcore.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtConcurrent>
#include <QtTest>

namespace {

QStringList logged;

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
    void exceptions()
    {
        auto job = QtConcurrent::run([] { throw Exception(QStringLiteral("Цена %1")); });
        try {
            job.waitForFinished();
            QFAIL("nothing thrown");
        } catch (const Exception& copy) {
            QCOMPARE(copy.message(), QStringLiteral("Цена %1"));
            QCOMPARE(QString::fromUtf8(copy.what()), copy.message());
            // Innermost first: the library's own frames come before the program's.
            const int library = copy.stack().indexOf(QRegularExpression(".*getStack.*"));
            QVERIFY(library >= 0);
            QVERIFY(copy.stack().indexOf(QRegularExpression(".*tst_base.*")) > library);
            const QtMessageHandler previous = qInstallMessageHandler(
                [](QtMsgType type, const QMessageLogContext&, const QString& text) {
                    logged.append(type == QtDebugMsg ? text : QString());
                });
            copy.dump();
            qInstallMessageHandler(previous);
            QCOMPARE(logged, copy.stack()); // a message a frame
        }
        QCOMPARE(deepStack(3000).size(), 128);
    }

    void hostCoreKeepsTablesAndJoins()
    {
        const auto table = [](quintptr n) { return reinterpret_cast<Table*>(n); };
        const auto join = [](quintptr n) { return reinterpret_cast<TableJoin*>(n); };
        QVERIFY(!ICore::instance());
        {
            HostCore core;
            ICore::setInstance(&core);
            HostCore(); // was not installed
            QCOMPARE(ICore::instance(), static_cast<ICore*>(&core));
            core.addTable("Orders", table(8));
            core.addTable("Orders", table(24));
            core.addTable("Deals", table(16));
            QCOMPARE(core.table("Orders"), table(24));
            QVERIFY(!core.hasTable("orders") && !core.table("orders"));
            QCOMPARE(core.tableNames(), QStringList({"Deals", "Orders"}));
            core.addTable("Orders", nullptr);
            core.removeTable("Deals");
            QVERIFY(core.tableNames().isEmpty() && !core.hasTable("Orders"));
            for (const quintptr n : {16, 8, 16, 0})
                core.registerJoin(join(n));
            QCOMPARE(core.joins(), QList<TableJoin*>({join(16), join(8)}));
            core.unregisterJoin(join(16));
            QCOMPARE(core.joins(), QList<TableJoin*>({join(8)}));
        }
        QVERIFY(!ICore::instance());
    }

    void directories()
    {
        const QString bundle = "x.app/MacOS";
        const QString home = "installed home/tst_base";
        // The program's directory, what is made before, the directory asked for and what it is.
        const QStringList rows[] = {
            {"bin", "bin/a/b/", "a/b", "app", "portable bin/a/b"},
            {"bin", "", "a", "app", "portable bin"},
            {"bin", "bin/.installed", "", "app", "installed bin"},
            {"bin", "", "a/b", "user", "portable bin/user/a/b"},
            {"bin", "bin/user/a", "a", "user", "portable bin/user"}, // a file is in the way
            {"bin", "bin/.installed", "", "user", home + " missing"},
            {"bin", "bin/.installed", "a", "user", home + "/a"},
            {bundle, "x.app/Resources/a/", "a", "app", "portable x.app/Resources/a"},
            {bundle, "x.app/Resources/.installed", "a", "user", home + "/a"},
            {"bin", "Resources/.installed", "", "app", "portable bin"},
        };
        for (const QStringList& row : rows) {
            const QTemporaryDir scratch;
            const QDir root(QDir(scratch.path()).canonicalPath());
            QVERIFY(root.mkpath(row[0]) && root.mkpath(QFileInfo("./" + row[1]).path()));
            QFile mark(root.filePath(row[1]));
            QVERIFY(row[1].isEmpty() || row[1].endsWith('/') || mark.open(QIODevice::WriteOnly));
            const QString program = root.filePath(row[0] + "/tst_base");
            QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));
            QProcess process;
            process.start("env", {"XDG_DATA_HOME=" + root.filePath("home"), program, "--dir",
                                  row[2], row[3], root.path()});
            QVERIFY(process.waitForFinished());
            QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()), row[4]);
        }
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    application.setApplicationName("tst_base");
    const QStringList arguments = application.arguments();
    if (argc == 5 && arguments.at(1) == "--dir") { // a copy of this program in another place
        const QDir dir = ICore::getDir(arguments.at(2), arguments.at(3) == "app");
        QTextStream(stdout) << (ICore::isPortable() ? "portable " : "installed ")
                            << QDir(arguments.at(4)).relativeFilePath(dir.absolutePath())
                            << (dir.exists() ? "" : " missing");
        return 0;
    }
    TestBase test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_base.moc"
