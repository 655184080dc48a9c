// SPDX-License-Identifier: MIT
#include "csvreader.h"

#include "price.h"
#include "session.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <zlib.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace {

/// No line of a quote file is near this; a longer one is a file of another kind.
constexpr size_t MaximumLine = 64 * 1024;

/// The bytes of a file, safe to print: cut short, and with nothing that a terminal would obey.
QString printable(std::string_view bytes)
{
    constexpr size_t limit = 40;
    QString text;
    for (const QChar c : QString::fromUtf8(bytes.data(), int(std::min(bytes.size(), limit))))
        text += c.isPrint() ? c : QChar(QChar::ReplacementCharacter);
    if (bytes.size() > limit)
        text += QStringLiteral("...");
    return text;
}

} // namespace

struct CsvReader::Stream
{
    explicit Stream(const QString& path)
        : file(gzopen(QFile::encodeName(path).constData(), "rb"))
        , sizeBytes(QFileInfo(path).size())
    {
        if (file)
            gzbuffer(file, 128 * 1024);
    }
    ~Stream()
    {
        if (file)
            gzclose(file);
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    gzFile file;
    qint64 sizeBytes;
};

CsvReader::CsvReader(const QString& path, const QByteArray& header)
    : name(QDir::toNativeSeparators(path))
    , buffer(2 * MaximumLine)
{
    const QFileInfo info(path);
    if (!info.exists())
        throw InputError{QStringLiteral("%1: there is no such file").arg(name)};
    if (!info.isFile())
        throw InputError{QStringLiteral("%1: is not a file").arg(name)};
    errno = 0;
    stream = std::make_unique<Stream>(path);
    if (!stream->file) {
        const QString why = QString::fromLocal8Bit(errno != 0 ? std::strerror(errno) : "no memory");
        throw InputError{QStringLiteral("%1: cannot be opened: %2").arg(name, why)};
    }

    for (const QByteArray& column : header.split(','))
        columnNames.push_back(QString::fromUtf8(column));
    std::string_view line;
    if (!nextLine(line))
        throw InputError{QStringLiteral("%1: is empty").arg(name)};
    if (line != std::string_view(header.constData(), size_t(header.size())))
        fail(QStringLiteral("expected the header %1, found '%2'")
                 .arg(QString::fromUtf8(header), printable(line)));
}

CsvReader::~CsvReader() = default;

bool CsvReader::next(int minimumFields)
{
    std::string_view line;
    if (!nextLine(line))
        return false;
    split(line);
    const auto most = columnNames.size();
    const auto least = minimumFields < 0 ? most : size_t(minimumFields);
    if (fields.size() < least || fields.size() > most)
        fail(QStringLiteral("expected %1 fields, found %2").arg(most).arg(fields.size()));
    return true;
}

bool CsvReader::nextLine(std::string_view& line)
{
    size_t searched = begin;
    for (;;) {
        const char* from = buffer.data() + searched;
        const void* newline = std::memchr(from, '\n', end - searched);
        if (newline) {
            const auto stop = size_t(static_cast<const char*>(newline) - buffer.data());
            line = {buffer.data() + begin, stop - begin};
            begin = stop + 1;
            break;
        }
        const size_t waiting = end - begin;
        if (waiting > MaximumLine) {
            ++lineNumber;
            fail(QStringLiteral("the line is longer than %1 bytes").arg(MaximumLine));
        }
        if (!refill()) {
            if (waiting == 0)
                return false;
            line = {buffer.data() + begin, waiting}; // the last line needs no newline
            begin = end;
            break;
        }
        searched = begin + waiting;
    }
    ++lineNumber;
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return true;
}

bool CsvReader::refill()
{
    std::memmove(buffer.data(), buffer.data() + begin, end - begin);
    end -= begin;
    begin = 0;
    const int count = gzread(stream->file, buffer.data() + end, unsigned(buffer.size() - end));

    // A file that was cut off gives what it has, and tells only through the error code.
    int code = Z_OK;
    const char* message = gzerror(stream->file, &code);
    if (count < 0 || (code != Z_OK && code != Z_STREAM_END)) {
        const QString text =
            QString::fromLocal8Bit(code == Z_ERRNO ? std::strerror(errno) : message);
        const QString why = text.section(QStringLiteral(": "), -1); // zlib starts with the path
        throw InputError{QStringLiteral("%1: cannot be read after line %2: %3")
                             .arg(name, QString::number(lineNumber), why)};
    }
    end += size_t(count);
    return count > 0;
}

void CsvReader::split(std::string_view line)
{
    fields.clear();
    for (;;) {
        const auto comma = line.find(',');
        fields.push_back(line.substr(0, comma));
        if (comma == std::string_view::npos)
            return;
        line.remove_prefix(comma + 1);
    }
}

std::string_view CsvReader::field(int column) const
{
    return size_t(column) < fields.size() ? fields[size_t(column)] : std::string_view();
}

QString CsvReader::text(int column) const
{
    const std::string_view bytes = field(column);
    return QString::fromUtf8(bytes.data(), int(bytes.size()));
}

int CsvReader::integer(int column, int minimum, int maximum) const
{
    const std::string_view bytes = field(column);
    const char* last = bytes.data() + bytes.size();
    int value = 0;
    const auto [stop, error] = std::from_chars(bytes.data(), last, value);
    if (error != std::errc() || stop != last || value < minimum || value > maximum)
        failField(column, QStringLiteral("a whole number from %1 to %2").arg(minimum).arg(maximum));
    return value;
}

std::optional<decimal> CsvReader::price(int column) const
{
    const std::string_view bytes = field(column);
    if (bytes.empty())
        return std::nullopt;
    const std::optional<decimal> value = parsePrice(bytes);
    if (!value)
        failField(column, QStringLiteral("a price"));
    return value;
}

decimal CsvReader::number(int column) const
{
    const std::string_view bytes = field(column);
    decimal value;
    if (!decimal::tryParse(bytes.data(), int(bytes.size()), &value))
        failField(column, QStringLiteral("a number"));
    return value;
}

void CsvReader::fail(const QString& what) const
{
    throw InputError{QStringLiteral("%1:%2: %3").arg(name, QString::number(lineNumber), what)};
}

void CsvReader::failField(int column, const QString& wanted) const
{
    fail(QStringLiteral("%1 is not %2: '%3'")
             .arg(columnNames[size_t(column)], wanted, printable(field(column))));
}

double CsvReader::progress() const
{
    if (stream->sizeBytes <= 0)
        return 1;
    return std::min(1.0, double(gzoffset(stream->file)) / double(stream->sizeBytes));
}
