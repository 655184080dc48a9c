// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QByteArray>
#include <QException>
#include <QString>
#include <QStringList>

/**
 * A failure that a caller is expected to report: a message and the call stack at the moment the
 * object was made, so that a log shows where a bad conversion or a bad file came from.
 *
 * Thrown and caught by value; a plain value with no ties to the thread that made it. It is a
 * QException, so Qt's concurrent functions carry it from a pool thread to the waiting caller
 * unchanged, and a std::exception, so a last-resort handler sees its text.
 *
 * Making one walks and symbolizes the stack (some tens of microseconds): it is for failures, not
 * for control flow.
 *
 * @code
 * try {
 *     price = field.toDouble();
 * } catch (const Exception& e) {
 *     qWarning().noquote() << e.message();
 *     e.dump();
 * }
 * @endcode
 */
class LIVETABLE_EXPORT Exception : public QException
{
public:
    /// Keeps the message and takes the calling thread's stack.
    explicit Exception(const QString& message);
    Exception(const Exception& other);
    Exception& operator=(const Exception& other);
    ~Exception() noexcept override;

    /// The text given to the constructor.
    const QString& message() const noexcept { return m_message; }

    /// The stack at construction, innermost frame first, one entry a frame. Empty when the system
    /// gives no frames.
    const QStringList& stack() const noexcept { return m_stack; }

    /// The message as UTF-8; valid as long as this object and never null.
    const char* what() const noexcept override;

    /// Writes the stack to Qt's debug log (category "default"), one message a frame. The message
    /// itself is not written.
    void dump() const;

    /// The calling thread's stack, innermost frame first, at most 128 frames, each as the system's
    /// backtrace_symbols() words it. This function's own frame comes first. Empty where the system
    /// offers no backtrace.
    static QStringList getStack();

    /// Throws a copy of this object; what Qt's concurrent functions call on the waiting thread.
    void raise() const override;

    /// A copy on the heap, owned by the caller.
    Exception* clone() const override;

private:
    QString m_message;
    QStringList m_stack;
    QByteArray m_what; // what() may neither allocate nor fail
};
