// SPDX-License-Identifier: MIT
#include "runtime/logfile.h"

#include "base/fileio_p.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <mutex>

/// The one message handler of the process. Messages may come until the process ends, later than
/// static objects die, so there is nothing here that has a destructor to run.
struct LogFileHandler
{
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text);
    static QByteArray line(QtMsgType type, const QMessageLogContext& context, const QString& text);

    static std::mutex mutex;
    static LogFile* target;           // under the mutex, as all of these
    static QtMessageHandler previous; // the one before us; also where late messages go
    static bool isInstalled;          // somewhere in the chain, maybe below somebody else's
    static bool isChained;
};

std::mutex LogFileHandler::mutex;
LogFile* LogFileHandler::target = nullptr;
QtMessageHandler LogFileHandler::previous = nullptr;
bool LogFileHandler::isInstalled = false;
bool LogFileHandler::isChained = false;

QByteArray LogFileHandler::line(QtMsgType type, const QMessageLogContext& context,
                                const QString& text)
{
    const char kinds[] = {'D', 'W', 'C', 'F', 'I'}; // in the order of QtMsgType
    const bool isKnown = type >= QtDebugMsg && type <= QtInfoMsg;
    QByteArray message = qFormatLogMessage(type, context, text).toUtf8();
    message.replace('\n', "\n\t");
    QByteArray bytes = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toLatin1();
    bytes += ' ';
    bytes += isKnown ? kinds[type] : '?';
    bytes += ' ';
    bytes += message;
    bytes += '\n';
    return bytes;
}

// Not entered twice by a thread: what is logged inside a handler Qt writes to stderr by itself.
void LogFileHandler::handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    const QByteArray bytes = line(type, context, text);
    QtMessageHandler next = nullptr;
    {
        const std::lock_guard<std::mutex> locked(mutex);
        // Unbuffered and appending: one call of the system, behind whatever is there.
        if (target)
            target->messages.write(bytes);
        // Without a target this is a message that was on its way when the handler was removed.
        if (isChained || !target)
            next = previous;
    }
    if (next)
        next(type, context, text);
}

LogFile::LogFile(const QString& fileName, QObject* parent)
    : QObject(parent)
    , file(fileName)
    , messages(fileName)
{
    if (file.exists())
        rotate(fileName);
    if (file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        setDevice(&file);
    // Not the locale's, which need not know every letter. After setDevice(), which resets it.
    setCodec("UTF-8");
}

LogFile::~LogFile()
{
    removeMessageHandler();
    // The stream must let go of the file here: its own destructor runs after the file's.
    setDevice(nullptr);
    file.flush();
}

// Past QFile, which would keep what could not be written, and the stream would be silent from then
// on.
qint64 LogFile::Device::writeData(const char* data, qint64 size)
{
    for (qint64 done = 0; done < size;) {
        const qint64 written =
            LiveTable::FileIo::instance().write(handle(), data + done, size - done);
        if (written <= 0 && written != -EINTR)
            break;
        done += std::max<qint64>(written, 0);
    }
    return size;
}

// Not by way of QFile, which copies a file that it cannot rename, and loses it when the disk is
// full.
static void renameLog(const QString& from, const QString& to)
{
    if (!QFileInfo::exists(to))
        LiveTable::FileIo::instance().rename(QFile::encodeName(from), QFile::encodeName(to));
}

void LogFile::rotate(const QString& fileName)
{
    const QFileInfo info(fileName);
    for (int n = oldLogs; n >= 1; --n) {
        const QString old = rotateName(info, n);
        if (!QFile::exists(old))
            continue;
        if (n == oldLogs)
            QFile::remove(old);
        else
            renameLog(old, rotateName(info, n + 1));
    }
    renameLog(fileName, rotateName(info, 1));
}

QString LogFile::rotateName(const QFileInfo& info, int n)
{
    // In one go: a name may itself contain what looks like a place marker.
    return QStringLiteral("%1.%2.%3")
        .arg(info.path() + QDir::separator() + info.completeBaseName(), QString::number(n),
             info.suffix());
}

bool LogFile::installMessageHandler(bool chained)
{
    if (!file.isOpen())
        return false;
    using Handler = LogFileHandler;
    const std::lock_guard<std::mutex> locked(Handler::mutex);
    if (!messages.isOpen() && !messages.open(QIODevice::WriteOnly | QIODevice::Append |
                                             QIODevice::Text | QIODevice::Unbuffered))
        return false;
    const QtMessageHandler current = qInstallMessageHandler(Handler::handle);
    if (current != Handler::handle) {
        // Over a handler that may call us, we would go round in a circle.
        if (Handler::isInstalled && current != Handler::previous) {
            qInstallMessageHandler(current);
            return false;
        }
        Handler::previous = current;
        Handler::isInstalled = true;
    }
    Handler::target = this;
    Handler::isChained = chained;
    return true;
}

void LogFile::removeMessageHandler()
{
    using Handler = LogFileHandler;
    const std::lock_guard<std::mutex> locked(Handler::mutex);
    if (Handler::target != this)
        return;
    Handler::target = nullptr;
    const QtMessageHandler current = qInstallMessageHandler(Handler::previous);
    if (current == Handler::handle) {
        Handler::isInstalled = false;
        return;
    }
    // Somebody came after us and may call us, so we stay in the chain and pass messages on.
    qInstallMessageHandler(current);
}
