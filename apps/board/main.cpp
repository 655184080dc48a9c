// SPDX-License-Identifier: MIT
// The market board as a desktop program.
#include "automation.h"
#include "mainwindow.h"
#include "options.h"
#include "session.h"
#include "theme.h"

#include "base/exception.h"
#include "base/icore.h"
#include "runtime/logfile.h"

#include <QApplication>
#include <QDir>

#include <cstdio>

namespace {

enum ExitCode
{
    BadInput = 2,
    Broken = 3
};

int complain(const QString& message, ExitCode code)
{
    std::fprintf(stderr, "board: %s\n", qPrintable(message));
    return code;
}

int run(QApplication& application)
{
    const Options options = parseOptions(QApplication::arguments());
    if (options.help) {
        std::fputs(qPrintable(options.helpText), stdout);
        return 0;
    }
    if (!options.settingsDir.isEmpty()) {
        if (!QDir().mkpath(options.settingsDir))
            return complain(
                QStringLiteral("%1: the folder cannot be made").arg(options.settingsDir), BadInput);
        ICore::setProgramDir(options.settingsDir);
    }
    LogFile log(ICore::getDir(QStringLiteral("logs"), false).filePath(QStringLiteral("board.log")));
    log.installMessageHandler();
    Theme::apply(application, options.dark.value_or(true));
    MainWindow window(options);
    Automation automation(window, options);
    window.show();
    qInfo("Started with %s, workplace %s", qUtf8Printable(window.player().market()->info.title),
          qUtf8Printable(window.workplace()));
    return QApplication::exec();
}

} // namespace

int main(int argc, char** argv)
{
    QApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("board"));
    try {
        return run(application);
    } catch (const InputError& error) {
        return complain(error.message, BadInput);
    } catch (const Exception& error) {
        return complain(error.message(), Broken);
    } catch (const QString& message) {
        return complain(message, Broken);
    } catch (const std::exception& error) {
        return complain(QString::fromLocal8Bit(error.what()), Broken);
    }
}
