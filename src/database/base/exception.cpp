// SPDX-License-Identifier: MIT
#include "base/exception.h"

#include <QDebug>

#include <cstdlib>
#include <memory>

#if defined(__has_include)
#if __has_include(<execinfo.h>)
#include <execinfo.h>
#define LIVETABLE_HAS_BACKTRACE 1
#endif
#endif

Exception::Exception(const QString& message)
    : m_message(message)
    , m_stack(getStack())
    , m_what(message.toUtf8())
{}

Exception::Exception(const Exception& other) = default;
Exception& Exception::operator=(const Exception& other) = default;
Exception::~Exception() noexcept = default;

const char* Exception::what() const noexcept
{
    return m_what.constData();
}

void Exception::dump() const
{
    for (const QString& frame : m_stack)
        qDebug().noquote() << frame;
}

QStringList Exception::getStack()
{
    QStringList frames;
#ifdef LIVETABLE_HAS_BACKTRACE
    constexpr int maxFrames = 128;
    void* addresses[maxFrames];
    const int count = backtrace(addresses, maxFrames);
    // One block holds the pointers and the texts; null when memory is short.
    const std::unique_ptr<char*, decltype(&std::free)> symbols(backtrace_symbols(addresses, count),
                                                               &std::free);
    if (!symbols)
        return frames;
    frames.reserve(count);
    for (int i = 0; i < count; ++i)
        frames.append(QString::fromLatin1(symbols.get()[i]));
#endif
    return frames;
}

void Exception::raise() const
{
    throw *this;
}

Exception* Exception::clone() const
{
    return new Exception(*this);
}
