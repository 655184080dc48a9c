// SPDX-License-Identifier: MIT
#include "value/datetime.h"

#include <QDate>
#include <QTime>

#include <limits>

namespace {

constexpr qint64 msecsPerDay = 86400000;
constexpr qint64 julianDayOfEpoch = 2440588;

/// Whole days since the epoch (rounded down) and the milliseconds of that day.
struct DayAndTime
{
    qint64 day;
    int msecs;
};

constexpr DayAndTime split(qint64 msecsSinceEpoch)
{
    qint64 day = msecsSinceEpoch / msecsPerDay;
    qint64 msecs = msecsSinceEpoch % msecsPerDay;
    if (msecs < 0) {
        msecs += msecsPerDay;
        --day;
    }
    return {day, static_cast<int>(msecs)};
}

QDate dateOf(const DayAndTime& value)
{
    return QDate::fromJulianDay(value.day + julianDayOfEpoch);
}

/// Writes `count` digits and returns the place after them.
QChar* putDigits(QChar* out, int value, int count)
{
    for (int i = count - 1; i >= 0; --i) {
        out[i] = QLatin1Char(static_cast<char>('0' + value % 10));
        value /= 10;
    }
    return out + count;
}

/// Reads a fixed form from the front of a text. After a mismatch `ok` is false and stays so.
class FieldReader
{
public:
    explicit FieldReader(const QStringRef& text)
        : at(text.begin())
        , end(text.end())
    {}

    /// A section of exactly `count` characters: digits, of which the first may be a plus.
    int number(int count)
    {
        if (!ok || end - at < count)
            return fail();
        int value = 0;
        for (int i = 0; i < count; ++i, ++at) {
            const int digit = at->unicode() - '0';
            if (digit >= 0 && digit <= 9)
                value = value * 10 + digit;
            else if (i > 0 || *at != QLatin1Char('+'))
                return fail();
        }
        return value;
    }

    void separator(char c)
    {
        if (!ok || at == end || *at != QLatin1Char(c))
            fail();
        else
            ++at;
    }

    bool atEnd() const { return ok && at == end; }

private:
    int fail()
    {
        ok = false;
        return 0;
    }

    const QChar* at;
    const QChar* end;
    bool ok = true;
};

/// The locale's format without its time zone sections ("t" outside quotes).
QString withoutZone(const QString& format)
{
    QString result;
    bool quoted = false;
    for (const QChar c : format) {
        if (c == QLatin1Char('\''))
            quoted = !quoted;
        if (quoted || c != QLatin1Char('t'))
            result.append(c);
    }
    return result.trimmed();
}

} // namespace

const QString datetime::defaultFormat = QStringLiteral("yyyy.MM.dd HH:mm:ss.zzz");
const QString datetime::timeNoDateFormat = QStringLiteral("HH:mm:ss.zzz");

datetime::datetime(const QString& text)
    : datetime(fromString(QStringRef(&text)))
{}

datetime::datetime(const QStringRef& text)
    : datetime(fromString(text))
{}

datetime datetime::fromString(const QStringRef& text, bool* ok)
{
    // The fifth character and the length decide which form it can be at all.
    const bool dashed = text.size() > 4 && text.at(4) == QLatin1Char('-');
    const char between = dashed ? '-' : '.';
    FieldReader reader(text);
    const int year = reader.number(4);
    reader.separator(between);
    const int month = reader.number(2);
    reader.separator(between);
    const int day = reader.number(2);
    QTime time(0, 0);
    if (text.size() > 10) {
        reader.separator(' ');
        const int hour = reader.number(2);
        reader.separator(':');
        const int minute = reader.number(2);
        reader.separator(':');
        const int second = reader.number(2);
        int msec = 0;
        if (!dashed) {
            reader.separator('.');
            msec = reader.number(3);
        }
        time = QTime(hour, minute, second, msec);
    }
    const QDate date(year, month, day);
    const bool fits = reader.atEnd() && date.isValid() && time.isValid();
    if (ok)
        *ok = fits;
    if (!fits)
        return datetime();
    return datetime((date.toJulianDay() - julianDayOfEpoch) * msecsPerDay +
                    time.msecsSinceStartOfDay());
}

datetime datetime::fromQDateTime(const QDateTime& value)
{
    // The date and the time are asked for validity, not the value: a local time that a change to
    // summer time skips has fields and yet is no valid QDateTime.
    const QDate date = value.date();
    const QTime time = value.time();
    constexpr qint64 lastDay = std::numeric_limits<qint64>::max() / msecsPerDay - 1;
    const qint64 day = date.toJulianDay() - julianDayOfEpoch;
    if (!date.isValid() || !time.isValid() || day > lastDay || day < -lastDay)
        return datetime();
    return datetime(day * msecsPerDay + time.msecsSinceStartOfDay());
}

QDateTime datetime::toQDateTime() const
{
    const DayAndTime parts = split(m_msecs);
    return QDateTime(dateOf(parts), QTime::fromMSecsSinceStartOfDay(parts.msecs), Qt::UTC);
}

QString datetime::toString() const
{
    if (isNull())
        return QString();
    const DayAndTime parts = split(m_msecs);
    int year = 0;
    int month = 0;
    int day = 0;
    dateOf(parts).getDate(&year, &month, &day);
    if (year < 0 || year > 9999)
        return QLocale::c().toString(toQDateTime(), defaultFormat);

    QString text(23, Qt::Uninitialized);
    QChar* out = putDigits(text.data(), year, 4);
    *out++ = QLatin1Char('.');
    out = putDigits(out, month, 2);
    *out++ = QLatin1Char('.');
    out = putDigits(out, day, 2);
    *out++ = QLatin1Char(' ');
    out = putDigits(out, parts.msecs / 3600000, 2);
    *out++ = QLatin1Char(':');
    out = putDigits(out, parts.msecs / 60000 % 60, 2);
    *out++ = QLatin1Char(':');
    out = putDigits(out, parts.msecs / 1000 % 60, 2);
    *out++ = QLatin1Char('.');
    putDigits(out, parts.msecs % 1000, 3);
    return text;
}

QString datetime::toSystemString(bool withTime, QLocale::FormatType format) const
{
    if (isNull())
        return QString();
    const QLocale locale = QLocale::system();
    const QDateTime value = toQDateTime();
    if (!withTime)
        return locale.toString(value.date(), format);
    const QString pattern = locale.dateTimeFormat(format);
    const QString zoneless = withoutZone(pattern);
    return zoneless == pattern ? locale.toString(value, format) : locale.toString(value, zoneless);
}
