// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QDateTime>
#include <QHash>
#include <QLocale>
#include <QMetaType>
#include <QString>

/**
 * A date and time of day as one 64-bit count of milliseconds since 1970-01-01 00:00:00.
 *
 * It is a wall-clock time: the fields are kept as they were given, in no time zone. Nothing here
 * passes through the process' local time, so every date and time reads and prints as itself,
 * those that a change to summer time skips included. The count 0 means "unset" and prints as an
 * empty text: the very first millisecond of 1970 cannot be told from it.
 *
 * A plain value of 8 bytes: trivially copyable, ordered by its count, usable as a hash key, in
 * variants and in Qt's containers. Nothing throws. Thread-safe as any value. Printing and reading
 * cost some tens of nanoseconds.
 *
 * @code
 * const datetime t(QStringLiteral("2017.03.01 10:00:00.250"));
 * t.toString();                    // "2017.03.01 10:00:00.250"
 * t.toQDateTime().toUTC().time();  // 10:00:00.250
 * @endcode
 */
class LIVETABLE_EXPORT datetime
{
public:
    /// "yyyy.MM.dd HH:mm:ss.zzz", the form that toString() writes, in QDateTime's notation.
    static const QString defaultFormat;
    /// "HH:mm:ss.zzz": the time part of defaultFormat.
    static const QString timeNoDateFormat;

    /// Unset.
    constexpr datetime() noexcept = default;

    /// From a count of milliseconds since 1970-01-01 00:00:00; negative before it, 0 for unset.
    explicit constexpr datetime(qint64 msecsSinceEpoch) noexcept
        : m_msecs(msecsSinceEpoch)
    {}

    /// From a text as fromString() reads it; unset when no form fits.
    explicit datetime(const QString& text);
    explicit datetime(const QStringRef& text);

    /**
     * Reads a text in one of these forms, tried in this order, as QDateTime::fromString() would
     * (years 0001 to 9999, every section with its full number of digits, a plus sign allowed as a
     * section's first character, nothing before or after):
     *   1. "yyyy.MM.dd HH:mm:ss.zzz"
     *   2. "yyyy-MM-dd HH:mm:ss"
     *   3. "yyyy.MM.dd"
     *   4. "yyyy-MM-dd"
     * A date alone means its midnight. When no form fits the result is unset and *ok false (`ok`
     * may be null).
     */
    static datetime fromString(const QStringRef& text, bool* ok = nullptr);

    /// The date and time fields of `value` as they stand, whatever its time zone. Unset when one of
    /// them is invalid, and at the very ends (some 292 million years from 1970) of the count.
    static datetime fromQDateTime(const QDateTime& value);

    /// The same fields as a QDateTime in UTC; unset gives the first millisecond of 1970.
    QDateTime toQDateTime() const;

    /// The count; 0 when unset.
    constexpr qint64 toMSecsSinceEpoch() const noexcept { return m_msecs; }

    /// Whether the value is unset.
    constexpr bool isNull() const noexcept { return m_msecs == 0; }

    /// The value in defaultFormat; an empty text when unset. Years beyond 9999 take more digits,
    /// years before 1 a minus sign.
    QString toString() const;

    /**
     * The system locale's text for the value, an empty one when unset.
     *
     * `withTime` false gives the date alone. The locale's long form may ask for a time zone's name:
     * it is left out, because the value is in none.
     */
    QString toSystemString(bool withTime = true,
                           QLocale::FormatType format = QLocale::ShortFormat) const;

    friend constexpr bool operator==(datetime a, datetime b) noexcept
    {
        return a.m_msecs == b.m_msecs;
    }
    friend constexpr bool operator!=(datetime a, datetime b) noexcept
    {
        return a.m_msecs != b.m_msecs;
    }
    friend constexpr bool operator<(datetime a, datetime b) noexcept
    {
        return a.m_msecs < b.m_msecs;
    }
    friend constexpr bool operator<=(datetime a, datetime b) noexcept
    {
        return a.m_msecs <= b.m_msecs;
    }
    friend constexpr bool operator>(datetime a, datetime b) noexcept
    {
        return a.m_msecs > b.m_msecs;
    }
    friend constexpr bool operator>=(datetime a, datetime b) noexcept
    {
        return a.m_msecs >= b.m_msecs;
    }

private:
    qint64 m_msecs = 0;
};

static_assert(sizeof(datetime) == 8, "a cell holds a datetime as its bytes lie in memory");

inline uint qHash(datetime value, uint seed = 0) noexcept
{
    return qHash(value.toMSecsSinceEpoch(), seed);
}

Q_DECLARE_TYPEINFO(datetime, Q_PRIMITIVE_TYPE);
Q_DECLARE_METATYPE(datetime)
