// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QFile>
#include <QObject>
#include <QTextStream>

class QFileInfo;

/**
 * A text stream into a log file that sets the logs of the previous runs aside when it is made: make
 * one a run, write to it with the operators of QTextStream. With app.log there are at most
 * app.1.log (the run before) to app.5.log (the oldest) beside it. The text is UTF-8.
 *
 * It can also take Qt's own log: one call of installMessageHandler(), and qDebug() to qFatal() of
 * every thread end up in the file, line by line.
 *
 * Threads: the stream is used from one thread at a time. Messages may come from any thread; they
 * have a way of their own into the file and need not wait for the stream. So as not to part a line
 * of the stream by a message, end it with Qt::endl, which flushes. Errors: none is reported. A step
 * of the rotation that fails (a file in use, a folder in the way) is left out. What the disk does
 * not take (when it is full) is lost, and what comes after that is written again. When the file
 * cannot be opened device() is null and what is written is lost; Qt's stream then says
 * "QTextStream: No device" in Qt's log. Lifetime: what was written is in the file when the object
 * is gone. It gives Qt's log back then.
 *
 * @code
 * LogFile log(dir + "/app.log", nullptr);
 * log.installMessageHandler();
 * log << "Started" << Qt::endl;
 * qWarning() << "No quotes";            // 2020-01-06T10:00:00.123Z W No quotes
 * @endcode
 */
class LIVETABLE_EXPORT LogFile : public QObject, public QTextStream
{
    Q_OBJECT

public:
    /// How many logs of previous runs are kept.
    static constexpr int oldLogs = 5;

    /// If the file exists: deletes log 5, renames 4 to 5 and so on, and the file to 1. Then opens
    /// it for appending, creating it when needed (but not its folder).
    explicit LogFile(const QString& fileName, QObject* parent = nullptr);

    /// Flushes and closes; removeMessageHandler().
    ~LogFile() override;

    /// The name of the n-th old log: folder, complete base name, n and suffix, so dir/app.log gives
    /// dir/app.1.log for 1. Without a suffix the name ends in a dot; without a folder it begins
    /// with one ("./app.1.log").
    static QString rotateName(const QFileInfo& info, int n);

    /**
     * Sends Qt's log into this file from now on, in place of another LogFile that did so. Returns
     * whether it does: not when the file is not open, and not when somebody has put a handler of
     * their own over that of another LogFile, now removed, and has not taken it away.
     *
     * A message is the time in UTC, the kind (D, I, W, C or F), and what qFormatLogMessage() makes
     * of it, so qSetMessagePattern() adds categories and the like. It is written at once and in one
     * piece; its second and further lines begin with a tab, which tells them from messages.
     *
     * @param chained whether the handler that was installed before (Qt's own writes to stderr)
     *        gets every message as well, after the file has it; called by the thread that logs,
     *        without any lock held. What a handler itself logs, Qt writes to stderr only.
     */
    bool installMessageHandler(bool chained = false);

    /// Gives Qt's log back to the handler that was installed before; does nothing when this file is
    /// not the one that gets it. A handler that was installed since stays. No message is written
    /// into this file after it has returned.
    void removeMessageHandler();

private:
    /// Takes everything, so that the stream goes on behind what the disk did not take.
    class Device : public QFile
    {
    public:
        using QFile::QFile;

    protected:
        qint64 writeData(const char* data, qint64 size) override;
    };

    void rotate(const QString& fileName);

    Device file;
    QFile messages; // the messages' own way into the same file; under the handler's lock
    friend struct LogFileHandler;
};
