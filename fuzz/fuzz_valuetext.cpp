// SPDX-License-Identifier: MIT
// A byte that chooses a type of cells, and three texts, a line each: read as every type of value,
// as cells and as a key. What is read is printed and read again; numbers are compared by integers
// of any size.
#include "index/masterindex.h"
#include "require.h"
#include "support/decimaloracle.h"
#include "support/outcome.h"
#include "table/table.h"

#include <array>
#include <optional>

using namespace Oracle;

namespace {

using Texts = std::array<QString, 3>;

std::optional<decimal> readDecimal(const QString& text)
{
    decimal value, same;
    const bool isRead = decimal::tryParse(text, &value);
    require(isRead == outcome([&] { same = decimal(text); }).isNull() && same.raw() == value.raw());
    const QByteArray bytes = text.toUtf8();
    if (bytes.size() == text.size())
        require(decimal::tryParse(bytes.constData(), bytes.size(), &same) == isRead);
    require(same.raw() == value.raw() && (!isRead || decimal::canConvert(text, false)));
    if (!isRead)
        return {};
    char chars[decimal::maximumTextSize];
    const QString printed = value.toString();
    require(printed == QLatin1String(chars, value.toChars(chars)));
    if (value.scale() >= 0 && qAbs(value.mantissa()) <= qint64(1) << 53)
        require(decimal(printed).raw() == value.raw());
    return value;
}

std::optional<xdecimal> readXDecimal(const QString& text)
{
    xdecimal value;
    if (!outcome([&] { value = xdecimal(text); }).isNull())
        return {};
    require(!value.isNaN() && xdecimal::canConvert(text, false));
    require(same(numberOf(xdecimal(text.toUtf8().constData())), numberOf(value)));
    if (value.scale() >= 0)
        require(same(numberOf(xdecimal(value.toString())), numberOf(value)));
    return value;
}

// A text of few digits is the same number as either kind of decimal.
void checkKinds(const QString& text, std::optional<decimal> one, std::optional<xdecimal> other)
{
    const QString digits = text.section(u'e', 0, 0);
    if (std::count_if(digits.begin(), digits.end(), [](QChar c) { return c.isDigit(); }) > 16)
        return;
    if (other && other->scale() < xdecimal::maximumScale) // there the last digits may be cut
        require(one && same(numberOf(*one), numberOf(*other)) && xdecimal(*one) == *other);
    if (one && qAbs(one->scale()) < xdecimal::maximumScale && !digits.endsWith(u'.'))
        require(other.has_value());
}

void checkDecimals(const Texts& texts)
{
    std::array<std::optional<decimal>, 2> d;
    std::array<std::optional<xdecimal>, 2> x;
    for (size_t i = 0; i < 2; ++i) {
        d[i] = readDecimal(texts[i]);
        x[i] = readXDecimal(texts[i]);
        checkKinds(texts[i], d[i], x[i]);
    }
    if (d[0] && d[1])
        require(d[0]->compare(*d[1]) == numberOf(*d[0]).compare(numberOf(*d[1])));
    if (x[0] && x[1])
        require(x[0]->compare(*x[1]) == numberOf(*x[0]).compare(numberOf(*x[1])));
}

FieldValue cellOf(FieldType::Type type, const QString& text)
{
    FieldValue cell(type, type == FieldType::VarChar ? 5 : 2, true);
    const QString error = outcome([&] { cell.fromText(text); });
    require(error.isNull() || cell.isNull()); // a write that throws leaves the cell as it was
    return cell;
}

void checkCells(FieldType::Type type, const Texts& texts)
{
    const auto sign = [](const Field& a, const Field& b) {
        const int found = a.compare(b);
        require(b.compare(a) == -found && qAbs(found) <= 1);
        return found;
    };
    const FieldValue a = cellOf(type, texts[0]);
    if (a.isNull()) // the next would hardly be read either, and an Exception is dear
        return;
    const FieldValue b = cellOf(type, texts[1]);
    const FieldValue c = cellOf(type, texts[2]);
    require(sign(a, FieldValue(a)) == 0);
    const int ab = sign(a, b), bc = sign(b, c), ac = sign(a, c);
    require(ab * bc < 0 || ac == (ab ? ab : bc)); // a <= b <= c, or >=
    sign(a, cellOf(FieldType::Type(1 + type % FieldType::XDecimal), texts[1]));
    if (type != FieldType::Decimal && type != FieldType::XDecimal && !a.toString().isEmpty())
        require(sign(a, cellOf(type, a.toString())) == 0);
    a.toSystemString();
    a.toVariant();
}

void checkKey(const Texts& texts)
{
    Table table(QStringLiteral("keys"));
    table.addColumn(QStringLiteral("n"), FieldType::Integer64);
    table.addColumn(QStringLiteral("s"), FieldType::VarChar, 5);
    table.addColumn(QStringLiteral("d"), FieldType::Double);
    table.setMasterIndex(new MasterIndex_Column_Pure(&table, QList<int>{0, 1, 2}));
    const Record row(&table);
    row.data(0) = texts[0].toLongLong();
    row.data(1) = texts[1];
    row.data(2) = texts[2].toDouble();
    table.appendList({row});
    // Key text does not quote commas, nor tell a text of nothing but zeros from NULL.
    const QString middle = row.data(1).toString();
    if (!middle.contains(u',') && middle.isEmpty() == row.data(1).isNull())
        require(row.toString().isEmpty() || Record(&table, row.toString()) == row);
    Record found;
    outcome([&] { found = Record(&table, texts[0]); });
    require(found.isNull() || found == row);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    if (size < 1)
        return 0;
    const QString whole =
        QString::fromUtf8(reinterpret_cast<const char*>(data) + 1, static_cast<int>(size) - 1);
    const Texts texts{whole.section(u'\n', 0, 0), whole.section(u'\n', 1, 1),
                      whole.section(u'\n', 2)};
    checkDecimals(texts);
    checkCells(FieldType::Type(1 + data[0] % FieldType::XDecimal), texts);
    if (data[0] / FieldType::XDecimal % 4 == 0) // the dearest
        checkKey(texts);
    return 0;
}
