// SPDX-License-Identifier: MIT
#pragma once

#include "value/decimal.h"

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

/// Reads the lines of one gzip-compressed CSV file (or a plain one) whose first line names the
/// columns. Fields are separated by commas and are not quoted.
///
/// Every fault of the file, from a missing file to a field that is no number, is thrown as an
/// InputError that names the file, and the line when there is one. A field is a view into the
/// reader's buffer and lasts until the next call of next().
class CsvReader
{
public:
    /// Opens `path` and checks that its first line is `header`.
    CsvReader(const QString& path, const QByteArray& header);
    ~CsvReader();
    CsvReader(const CsvReader&) = delete;
    CsvReader& operator=(const CsvReader&) = delete;

    /// Reads the next line; false at the end of the file. The line has at least `minimumFields`
    /// fields and at most those of the header (-1: exactly those).
    bool next(int minimumFields = -1);

    /// The number of the current line, counted from 1, the header included.
    int line() const { return lineNumber; }

    /// The bytes of a field; empty for one that the line leaves out at its end.
    std::string_view field(int column) const;
    QString text(int column) const;

    /// A field as a whole number within minimum..maximum.
    int integer(int column, int minimum, int maximum) const;

    /// A field as a price (see parsePrice); an empty field has none.
    std::optional<decimal> price(int column) const;

    /// A field as a decimal, of any form that decimal::tryParse reads.
    decimal number(int column) const;

    /// Throws the InputError "FILE:LINE: what".
    [[noreturn]] void fail(const QString& what) const;

    /// The part of the file's bytes that has been read, 0 to 1.
    double progress() const;

private:
    struct Stream;

    bool nextLine(std::string_view& line);
    void split(std::string_view line);
    bool refill();
    [[noreturn]] void failField(int column, const QString& wanted) const;

    QString name; ///< the file's path, for messages
    std::unique_ptr<Stream> stream;
    std::vector<char> buffer;
    size_t begin = 0; ///< the bytes not yet taken are buffer[begin..end)
    size_t end = 0;
    int lineNumber = 0;
    std::vector<std::string_view> fields;
    std::vector<QString> columnNames;
};
