// SPDX-License-Identifier: MIT
#include "base/exception.h"
#include "support/seed.h"
#include "table/cell_p.h"
#include "table/field.h"

#include <QDateTime>
#include <QDebug>
#include <QRandomGenerator>
#include <QtTest>

#include <array>
#include <cmath>
#include <functional>
#include <limits>

namespace {

constexpr auto infinity = std::numeric_limits<double>::infinity();
constexpr auto nan = std::numeric_limits<double>::quiet_NaN();

/// A column of each type, in the order of the tables below.
const FieldDef columns[] = {{FieldType::Integer, 0},  {FieldType::Integer64, 0},
                            {FieldType::Double, 0},   {FieldType::Decimal, 2},
                            {FieldType::VarChar, 12}, {FieldType::DateTime, 0},
                            {FieldType::XDecimal, 3}, {FieldType::BoardList, 0}};
constexpr int columnCount = 8;

datetime someDate()
{
    return datetime(QStringLiteral("2017.03.01 10:00:00.250"));
}

boardlist someBoards()
{
    boardlist boards;
    boards.append(9, 1);
    boards.append(10, 2);
    return boards;
}

/// What `action` gives as text, or what it throws, behind a letter for the kind of the object.
QString outcome(const std::function<QString()>& action)
{
    try {
        return action();
    } catch (const Exception& e) {
        return "E:" + e.message();
    } catch (const QString& text) {
        return "Q:" + text;
    } catch (const char* text) {
        return QString("C:") + text;
    }
}

/// What writing into the cell does: its text afterwards, "NULL", or what is thrown.
QString written(Field field, const std::function<void(Field&)>& write)
{
    return outcome([&] {
        write(field);
        return field.isNull() ? QString("NULL") : field.toString();
    });
}

/// The cell's bytes and its null byte.
QByteArray bytesOf(const FieldValue& value)
{
    const auto size = FieldType::typeLength(value.type(), value.columnDef()->length);
    const auto width = int((size + 7) / 8 * 8);
    return QByteArray(reinterpret_cast<const char*>(value.data()), width + 1);
}

/// A cell of each column with a value in it.
FieldValue sample(int column)
{
    FieldValue value(columns[column].type, columns[column].length, true);
    switch (columns[column].type) {
    case FieldType::BoardList:
        value = someBoards();
        break;
    case FieldType::DateTime:
        value = someDate();
        break;
    default:
        value = -3;
    }
    return value;
}

} // namespace

using Write = std::function<void(Field&)>;
Q_DECLARE_METATYPE(Write)
using Read = std::function<QString(const Field&)>;
Q_DECLARE_METATYPE(Read)

class TestField : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writes_data();
    void writes();
    void writesBetweenFields_data();
    void writesBetweenFields();
    void writesRescale_data();
    void writesRescale();
    void writesAtTheLimits_data();
    void writesAtTheLimits();

    void reads_data();
    void reads();
    void readsCharacters_data();
    void readsCharacters();
    void namesTypes();
    void printsToDebug();

    void undefinedCellIsNull();
    void nullFlagIsItsOwnBit();
    void unwrittenXDecimalIsZero();

    void comparesAcrossTypes_data();
    void comparesAcrossTypes();
    void ordersEachType_data();
    void ordersEachType();
    void ordersMixedNumbers();

    void fieldValueOwnsItsCell();
    void fieldValueRefuses();
    void constants_data();
    void constants();
    void constantFromField_data();
    void constantFromField();

private:
    static void checkOrder(const QVector<FieldValue>& pool);
};

// --- writing -------------------------------------------------------------------------------------

void TestField::writes_data()
{
    QTest::addColumn<Write>("write");
    QTest::addColumn<QStringList>("expected"); // for each column
    const auto row = [](const char* name, Write write, const char* sourceType,
                        const QStringList& expected) {
        QStringList full = expected;
        for (int i = 0; i < full.size(); ++i) {
            if (full.at(i) == "A")
                full[i] = QString("E:Can't convert from %1 to %2")
                              .arg(sourceType, FieldType::typeName(columns[i].type));
        }
        QTest::newRow(name) << write << full;
    };
    const QString noDouble = "E:Can't convert double to datetime.";
    const QString noDecimal = "E:Can't convert from decimal to datetime.";
    row("int", [](Field& f) { f = 7; }, "Integer", {"7", "7", "7", "7.00", "7", "A", "7.000", "A"});
    row("int, negative", [](Field& f) { f = -2147483647 - 1; }, "Integer",
        {"-2147483648", "-2147483648", "-2147483648", "-2147483648.00", "-2147483648", "A",
         "-2147483648.000", "A"});
    row("long long", [](Field& f) { f = 5000000000LL; }, "Integer64",
        {"2147483647", "5000000000", "5e+09", "5000000000.00", "5000000000", "A", "5000000000.000",
         "A"});
    row("long long, negative", [](Field& f) { f = -5000000000LL; }, "Integer64",
        {"-2147483648", "-5000000000", "-5e+09", "-5000000000.00", "-5000000000", "A",
         "-5000000000.000", "A"});
    row("long", [](Field& f) { f = 8L; }, "Integer64",
        {"8", "8", "8", "8.00", "8", "A", "8.000", "A"});
    row("unsigned", [](Field& f) { f = 4294967295U; }, "Integer64",
        {"2147483647", "4294967295", "4.294967295e+09", "4294967295.00", "4294967295", "A",
         "4294967295.000", "A"});
    row("unsigned long", [](Field& f) { f = 9UL; }, "Integer64",
        {"9", "9", "9", "9.00", "9", "A", "9.000", "A"});
    row("bool", [](Field& f) { f = true; }, "Integer",
        {"1", "1", "1", "1.00", "1", "A", "1.000", "A"});
    row("double", [](Field& f) { f = -2.7; }, "Double",
        {"-2", "-2", "-2.7", "-2.70", "-2.700000", noDouble, "-2.700", "A"});
    row("double, rounded", [](Field& f) { f = 0.0625; }, "Double",
        {"0", "0", "0.0625", "0.06", "0.062500", noDouble, "0.063", "A"});
    row("decimal", [](Field& f) { f = decimal(-12345, 3); }, "Decimal",
        {"-12", "-12", "-12.345", "-12.345", "-12.345", noDecimal, "-12.345", "A"});
    row("xdecimal", [](Field& f) { f = xdecimal("-12.3450"); }, "Decimal",
        {"-12", "-12", "-12.345", "-12.3450", "-12.3450", noDecimal, "-12.3450", "A"});
    row("datetime", [](Field& f) { f = someDate(); }, "DateTime",
        {"A", "A", "A", "A", "2017.03.01 1", "2017.03.01 10:00:00.250", "A", "A"});
    row("datetime, unset", [](Field& f) { f = datetime(); }, "DateTime",
        {"A", "A", "A", "A", "NULL", "", "A", "A"});
    row("boardlist", [](Field& f) { f = someBoards(); }, "BoardList",
        {"A", "A", "A", "A", "A", "A", "A", "[BoardList]"});
    row("text, a number", [](Field& f) { f = QString("12"); }, "VarChar",
        {"12", "12", "12", "12", "12", "", "12", "A"});
    row("text, UTF-8 bytes", [](Field& f) { f = "-1.5"; }, "VarChar",
        {"E:Can't convert from '-1.5'' to Integer", "E:Can't convert from '-1.5'' to Integer64",
         "-1.5", "-1.5", "-1.5", "", "-1.5", "A"});
    row("text, cut", [](Field& f) { f = QString("<2017-03-01 10:00:00>").midRef(1, 19); },
        "VarChar",
        {"E:Can't convert from '2017-03-01 10:00:00'' to Integer",
         "E:Can't convert from '2017-03-01 10:00:00'' to Integer64",
         "E:Can't convert from '2017-03-01 10:00:00'' to Double",
         "Q:Невозможно создать decimal по строке '2017-03-01 10:00:00'", "2017-03-01 1",
         "2017.03.01 10:00:00.000", "Q:Невозможно создать xdecimal по строке '2017-03-01 10:00:00'",
         "A"});
    row("text, with a place marker", [](Field& f) { f = QString("12x%2"); }, "VarChar",
        {"E:Can't convert from '12x%2'' to Integer", "E:Can't convert from '12x%2'' to Integer64",
         "E:Can't convert from '12x%2'' to Double",
         "Q:Невозможно создать decimal по строке '12x%2'", "12x%2", "",
         "Q:Невозможно создать xdecimal по строке '12x%2'", "A"});
    const QStringList nulls = {"NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL"};
    row(
        "text, empty", [](Field& f) { f = QString(""); }, "VarChar", nulls);
    row(
        "text, empty reference", [](Field& f) { f = QStringRef(); }, "VarChar", nulls);
    row(
        "text, no bytes", [](Field& f) { f = static_cast<const char*>(nullptr); }, "VarChar",
        nulls);
    row(
        "NULL", [](Field& f) { f = Field(); }, "VarChar", nulls);
}

void TestField::writes()
{
    QFETCH(Write, write);
    QFETCH(QStringList, expected);
    QCOMPARE(expected.size(), columnCount);
    for (int column = 0; column < columnCount; ++column) {
        const QString wanted = expected.at(column);
        const bool throws = wanted.startsWith("E:") || wanted.startsWith("Q:");
        for (const bool nullBefore : {false, true}) {
            FieldValue value = sample(column);
            if (nullBefore)
                value.setNull();
            const QByteArray before = bytesOf(value);
            QCOMPARE(written(value, write), wanted);
            // A failed write leaves every byte and the null bit; the next write still succeeds.
            if (throws)
                QCOMPARE(bytesOf(value), before);
            static_cast<Field&>(value) = sample(column);
            QCOMPARE(value.toString(), sample(column).toString());
        }
    }
}

void TestField::writesBetweenFields_data()
{
    QTest::addColumn<FieldType::Type>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<Write>("prepare");
    QTest::addColumn<Write>("same"); // the write of a value that must do the same, null: a copy
    QTest::newRow("Integer") << FieldType::Integer << 0 << Write([](Field& f) { f = -7; })
                             << Write([](Field& f) { f = -7; });
    QTest::newRow("Integer64") << FieldType::Integer64 << 0
                               << Write([](Field& f) { f = 5000000000LL; })
                               << Write([](Field& f) { f = 5000000000LL; });
    QTest::newRow("Double") << FieldType::Double << 0 << Write([](Field& f) { f = 2.75; })
                            << Write([](Field& f) { f = 2.75; });
    for (const int length : {2, 4}) {
        QTest::addRow("Decimal[%d]", length)
            << FieldType::Decimal << length << Write([](Field& f) { f = decimal(275, 3); })
            << Write([](Field& f) { f = decimal(275, 3); });
        QTest::addRow("XDecimal[%d]", length)
            << FieldType::XDecimal << length << Write([](Field& f) { f = xdecimal("2.75"); })
            << Write([](Field& f) { f = xdecimal("2.75"); });
    }
    for (const char* text : {"17", "2.5", "2017-03-01", "much too long for it", "z"}) {
        for (const int length : {12, 30})
            QTest::addRow("VarChar[%d] %s", length, text)
                << FieldType::VarChar << length << Write([text](Field& f) { f = text; })
                << Write([text, length](Field& f) { f = QString(text).left(length); });
    }
    QTest::newRow("DateTime") << FieldType::DateTime << 0 << Write([](Field& f) { f = someDate(); })
                              << Write([](Field& f) { f = someDate(); });
    QTest::newRow("BoardList") << FieldType::BoardList << 0
                               << Write([](Field& f) { f = someBoards(); })
                               << Write([](Field& f) { f = someBoards(); });
}

void TestField::writesBetweenFields()
{
    QFETCH(FieldType::Type, type);
    QFETCH(int, length);
    QFETCH(Write, prepare);
    QFETCH(Write, same);
    FieldValue source(type, length, true);
    prepare(source);
    const QByteArray sourceBytes = bytesOf(source);
    for (int column = 0; column < columnCount; ++column) {
        FieldValue direct = sample(column);
        FieldValue copied = sample(column);
        const QString wanted = written(direct, same);
        QCOMPARE(written(copied, [&source](Field& f) { f = static_cast<Field&>(source); }), wanted);
        QCOMPARE(bytesOf(copied), bytesOf(direct));
    }
    Field itself = source;
    itself = source;
    QCOMPARE(bytesOf(source), sourceBytes);

    // A text that is there but empty: what a new row has in a column that is not nullable.
    FieldValue empty(FieldType::VarChar, 3, false);
    *(empty.data() + 8) = 1;
    QVERIFY(!empty.isNull());
    FieldValue shorter(FieldType::VarChar, 2, false);
    QCOMPARE(written(shorter, [&empty](Field& f) { f = static_cast<Field&>(empty); }),
             QString("NULL"));
    FieldValue equal(FieldType::VarChar, 3, false);
    QCOMPARE(written(equal, [&empty](Field& f) { f = static_cast<Field&>(empty); }), QString());
}

void TestField::writesRescale_data()
{
    QTest::addColumn<FieldType::Type>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<Write>("write");
    QTest::addColumn<QString>("expected");
    const Write five = [](Field& f) { f = 5; };
    const Write third = [](Field& f) { f = 2.0 / 3; };
    const Write text = [](Field& f) { f = "1.50"; };
    const Write quint = [](Field& f) { f = 18446744073709551615ULL; };
    const auto dec = FieldType::Decimal;
    const auto xdec = FieldType::XDecimal;
    QTest::newRow("decimal, int") << dec << 4 << five << "5.0000";
    QTest::newRow("decimal, int, scale 0") << dec << 0 << five << "5";
    QTest::newRow("decimal, int, below 0") << dec << -1 << Write([](Field& f) { f = 15; }) << "20";
    QTest::newRow("decimal, int, no room") << dec << 20 << five << "5.0000000000000000";
    QTest::newRow("decimal, int, scale beyond") << dec << 70000 << five << "5.0000000000000000";
    QTest::newRow("decimal, double") << dec << 4 << third << "0.6667";
    QTest::newRow("decimal, double, six at most") << dec << 8 << third << "0.66666700";
    QTest::newRow("decimal, double, too big")
        << dec << 2 << Write([](Field& f) { f = 1e12; }) << "Q:decimal:overflow";
    QTest::newRow("decimal, text") << dec << 4 << text << "1.50";
    QTest::newRow("decimal, unsigned") << dec << 0 << quint << "18446744073709551610";
    QTest::newRow("xdecimal, int") << xdec << 4 << five << "5.0000";
    QTest::newRow("xdecimal, int, last scale")
        << xdec << 25 << five << "5.0000000000000000000000000";
    QTest::newRow("xdecimal, int, no room") << xdec << 26 << five << "C:xdecimal:bad operand";
    QTest::newRow("xdecimal, no such scale") << xdec << 63 << five << "C:xdecimal:bad operand";
    QTest::newRow("xdecimal, scale beyond") << xdec << 65536 << five << "C:xdecimal:bad operand";
    QTest::newRow("xdecimal, double") << xdec << 4 << third << "0.6667";
    QTest::newRow("xdecimal, double, too big")
        << xdec << 2 << Write([](Field& f) { f = 1e21; }) << "C:xdecimal:overflow";
    QTest::newRow("xdecimal, infinity")
        << xdec << 2 << Write([](Field& f) { f = infinity; }) << "C:xdecimal:overflow";
    QTest::newRow("xdecimal, text") << xdec << 4 << text << "1.50";
    QTest::newRow("xdecimal, unsigned") << xdec << 1 << quint << "18446744073709551615.0";
    QTest::newRow("xdecimal to decimal")
        << dec << 1 << Write([](Field& f) { f = xdecimal("12345678901234567890.12"); })
        << "12345678901234567900";
}

void TestField::writesRescale()
{
    QFETCH(FieldType::Type, type);
    QFETCH(int, length);
    QFETCH(Write, write);
    QFETCH(QString, expected);
    FieldValue value(type, length, true);
    const QByteArray before = bytesOf(value);
    QCOMPARE(written(value, write), expected);
    QCOMPARE(bytesOf(value) == before, expected.contains(':'));
}

void TestField::writesAtTheLimits_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("integer");
    QTest::addColumn<QString>("integer64");
    const QString max32 = "2147483647";
    const QString min32 = "-2147483648";
    const QString max64 = "9223372036854775807";
    const QString min64 = "-9223372036854775808";
    QTest::newRow("nan") << nan << "0"
                         << "0";
    QTest::newRow("infinity") << infinity << max32 << max64;
    QTest::newRow("-infinity") << -infinity << min32 << min64;
    QTest::newRow("2^31 - 0.5") << 2147483647.5 << max32 << "2147483647";
    QTest::newRow("2^31") << 2147483648.0 << max32 << "2147483648";
    QTest::newRow("-2^31 - 0.5") << -2147483648.5 << min32 << "-2147483648";
    QTest::newRow("-2^31 - 1") << -2147483649.0 << min32 << "-2147483649";
    QTest::newRow("below 2^63") << 9223372036854774784.0 << max32 << "9223372036854774784";
    QTest::newRow("2^63") << 9223372036854775808.0 << max32 << max64;
    QTest::newRow("-2^63") << -9223372036854775808.0 << min32 << min64;
    QTest::newRow("-0.9") << -0.9 << "0"
                          << "0";
}

void TestField::writesAtTheLimits()
{
    QFETCH(double, value);
    QFETCH(QString, integer);
    QFETCH(QString, integer64);
    const Write write = [value](Field& f) { f = value; };
    QCOMPARE(written(FieldValue(FieldType::Integer, 0, true), write), integer);
    QCOMPARE(written(FieldValue(FieldType::Integer64, 0, true), write), integer64);

    FieldValue wide(FieldType::Integer64, 0, true);
    wide.fromText(integer64);
    FieldValue narrow(FieldType::Integer, 0, true);
    static_cast<Field&>(narrow) = wide;
    QCOMPARE(narrow.toString(), integer == "0" ? integer : QString::number(wide.toInteger()));
    QCOMPARE(written(FieldValue(FieldType::Integer64, 0, true),
                     [](Field& f) { f = 18446744073709551615ULL; }),
             QString("9223372036854775807"));
}

// --- reading -------------------------------------------------------------------------------------

void TestField::reads_data()
{
    QTest::addColumn<Read>("read");
    QTest::addColumn<QStringList>("expected"); // for each column, then for NULL
    const QString x = "E:Incorrect type conversion.";
    const QString t = "Q:Incorrect type of field.";
    QTest::newRow("toInteger") << Read([](const Field& f) {
        return QString::number(f.toInteger());
    }) << QStringList{"-3", "-3", x, x, x, x, x, x, "0"};
    QTest::newRow("toInteger64") << Read([](const Field& f) {
        return QString::number(f.toInteger64());
    }) << QStringList{"-3", "-3", x, x, x, x, x, x, "0"};
    QTest::newRow("toDouble") << Read([](const Field& f) { return QString::number(f.toDouble()); })
                              << QStringList{"-3", "-3", "-3", "-3", x, x, "-3", x, "0"};
    QTest::newRow("toDecimal") << Read([](const Field& f) { return f.toDecimal().toString(); })
                               << QStringList{x, x, x, "-3.00", x, x, x, x, "0"};
    QTest::newRow("toXDecimal") << Read([](const Field& f) { return f.toXDecimal().toString(); })
                                << QStringList{x, x, x, "-3.00", x, x, "-3.000", x, "0"};
    QTest::newRow("toDatetime") << Read([](const Field& f) { return f.toDatetime().toString(); })
                                << QStringList{x, x, x, x, "", someDate().toString(), x, x, ""};
    QTest::newRow("toBoardList") << Read([](const Field& f) { return f.toBoardList().toString(); })
                                 << QStringList{x, x, x, x, x, x, x, "10:2 9:1", ""};
    QTest::newRow("toString") << Read([](const Field& f) {
        return f.toString().isNull() ? QString("null") : f.toString();
    }) << QStringList{"-3",     "-3",          "-3",  "-3.00", "-3", someDate().toString(),
                      "-3.000", "[BoardList]", "null"};
    QTest::newRow("toSystemString") << Read([](const Field& f) {
        return f.toSystemString().isNull() ? QString("null") : f.toSystemString();
    })
                                    << QStringList{QLocale::system().toString(-3),
                                                   QLocale::system().toString(-3),
                                                   QLocale::system().toString(-3.0),
                                                   decimal(-300, 2).toSystemString(),
                                                   "-3",
                                                   someDate().toSystemString(),
                                                   xdecimal("-3.000").toSystemString(),
                                                   "10:2 9:1",
                                                   "null"};
    QTest::newRow("asStaticString")
        << Read([](const Field& f) { return QString(f.asStaticString()); })
        << QStringList{t, t, t, t, "-3", t, t, t, ""};
    const Read variant = [](const Field& f) {
        const QVariant v = f.toVariant();
        return QString("%1 %2").arg(v.isValid() ? v.typeName() : "invalid", v.toString());
    };
    QTest::newRow("toVariant") << variant
                               << QStringList{"int -3",
                                              "qlonglong -3",
                                              "double -3",
                                              "decimal " + decimal(-300, 2).toVariant().toString(),
                                              "QString -3",
                                              "QDateTime 2017-03-01T10:00:00.250Z",
                                              "xdecimal " +
                                                  xdecimal("-3.000").toVariant().toString(),
                                              "QString 10:2 9:1",
                                              "invalid "};
}

void TestField::reads()
{
    QFETCH(Read, read);
    QFETCH(QStringList, expected);
    QCOMPARE(expected.size(), columnCount + 1);
    for (int column = 0; column < columnCount; ++column) {
        FieldValue value = sample(column);
        QCOMPARE(outcome([&] { return read(value); }), expected.at(column));
        value.setNull(); // looked at before the type
        QCOMPARE(outcome([&] { return read(value); }), expected.at(columnCount));
    }
}

void TestField::readsCharacters_data()
{
    QTest::addColumn<int>("length"); // -1: a column of another type
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("toChar");
    QTest::addColumn<QString>("asChar");
    const QString none = "0000";
    const QString type = "Q:Incorrect type of field.";
    const QString null = "Q:String is null for QChar";
    QTest::newRow("one") << 1 << "Я"
                         << "042f"
                         << "042f";
    QTest::newRow("null") << 1 << "" << none << null;
    QTest::newRow("one in a column of two") << 2 << "Я"
                                            << "Q:String length is not 1 for QChar: 2."
                                            << "Q:String length is not 1 for QChar: 2.";
    QTest::newRow("column of none") << 0 << "Я" << none << "Q:String length is not 1 for QChar: 0.";
    QTest::newRow("number") << -1 << "5" << type << type;
    QTest::newRow("null number") << -1 << "" << none << null;
}

void TestField::readsCharacters()
{
    QFETCH(int, length);
    QFETCH(QString, text);
    QFETCH(QString, toChar);
    QFETCH(QString, asChar);
    TableColumnDef def;
    def.type = length < 0 ? FieldType::Integer : FieldType::VarChar;
    def.length = qMax(length, 0);
    alignas(8) unsigned char data[8] = {};
    unsigned char nullByte = 0;
    Field field(&def, data, &nullByte, 1);
    field = text;
    const auto hex = [](QChar c) { return QString("%1").arg(c.unicode(), 4, 16, QChar('0')); };
    QCOMPARE(outcome([&] { return hex(field.toChar()); }), toChar);
    QCOMPARE(outcome([&] { return hex(field.asChar()); }), asChar);
}

void TestField::namesTypes()
{
    const char* const names[] = {"Invalid", "Integer",  "Integer64", "Double",   "Decimal",
                                 "String",  "DateTime", "undefined", "XDecimal", "undefined"};
    for (int type = 0; type < 10; ++type) {
        TableColumnDef def;
        def.type = static_cast<FieldType::Type>(type);
        unsigned char nullByte = 1;
        const Field field(&def, nullptr, &nullByte, 1);
        QCOMPARE(field.typeName(), names[type]);
        QCOMPARE(int(field.type()), type);
        if (type == 0)
            QCOMPARE(field.toString(), QString());
        if (type == 9) {
            QCOMPARE(outcome([&] { return field.toString(); }),
                     QString("Q:Incorrect type of field."));
            QVERIFY(!field.toVariant().isValid());
        }
    }
}

void TestField::printsToDebug()
{
    QString text;
    QDebug(&text) << FieldConstValue(5) << FieldConstValue() << FieldConstValue("a\"b") << 1;
    QCOMPARE(text, QString("\"5\" NULL \"a\\\"b\" 1"));
}

// --- the cell ------------------------------------------------------------------------------------

void TestField::undefinedCellIsNull()
{
    Field field;
    QVERIFY(field.isNull());
    QCOMPARE(field.type(), FieldType::Undefined);
    QCOMPARE(written(field, [](Field& f) { f = 5; }),
             QString("E:Can't convert from Integer to Undefined"));
    QCOMPARE(written(field, [](Field& f) { f = "x"; }),
             QString("E:Can't convert from VarChar to Undefined"));
    QCOMPARE(written(field, [](Field& f) { f = static_cast<Field&>(f); }), QString("NULL"));
    QVERIFY(Field().isNull());
    QCOMPARE(field.compare(Field()), 0);
}

void TestField::nullFlagIsItsOwnBit()
{
    TableColumnDef def;
    def.type = FieldType::Integer;
    unsigned char data[4] = {};
    unsigned char nullByte = 0xA5;
    for (int bit = 0; bit < 8; ++bit) {
        const auto mask = quint8(1 << bit);
        Field field(&def, data, &nullByte, mask);
        QCOMPARE(field.isNull(), (0xA5 & mask) == 0);
        field = bit;
        QVERIFY(!field.isNull());
        QCOMPARE(nullByte, static_cast<unsigned char>(0xA5 | mask));
        field.setNull();
        QCOMPARE(nullByte, static_cast<unsigned char>(0xA5 & ~mask));
        QCOMPARE(LiveTable::load<qint32>(data), bit); // the bytes stay
        nullByte = 0xA5;
    }
}

void TestField::unwrittenXDecimalIsZero()
{
    // Sixteen zero bytes with the value bit set: a column added to rows that were there before.
    FieldValue value(FieldType::XDecimal, 2, false);
    value.data()[16] = 1;
    QVERIFY(!value.isNull());
    QCOMPARE(value.toXDecimal().toString(), QString("0"));
    QCOMPARE(value.toString(), QString("0"));
    QCOMPARE(value.compare(FieldConstValue(xdecimal(0))), 0);

    // Bytes that are no number survive every reader and keep their place in the order.
    std::memset(value.data(), 0xff, 16);
    QVERIFY(value.toXDecimal().isNaN());
    QVERIFY(std::isnan(value.toDouble()));
    QCOMPARE(value.toString(), QString("NaN"));
    QCOMPARE(value.compare(value), 0);
    FieldValue integer(FieldType::Integer, 0, false);
    static_cast<Field&>(integer) = value;
    QCOMPARE(integer.toInteger(), 0);
}

// --- order ---------------------------------------------------------------------------------------

void TestField::comparesAcrossTypes_data()
{
    QTest::addColumn<FieldConstValue>("a");
    QTest::addColumn<FieldConstValue>("b");
    QTest::addColumn<int>("expected");
    using C = FieldConstValue;
    const C null;
    const C dec(decimal(150, 2));
    QTest::newRow("NULL and NULL") << null << null << 0;
    QTest::newRow("NULL and the least number") << null << C(-infinity) << -1;
    QTest::newRow("NULL and NaN") << null << C(nan) << -1;
    QTest::newRow("scales") << dec << C(decimal(15, 1)) << 0;
    QTest::newRow("both integers") << C(5) << C(5LL) << 0;
    QTest::newRow("integers beyond doubles") << C(9007199254740993LL) << C(9007199254740992LL) << 1;
    QTest::newRow("integer and decimal") << C(1) << dec << -1;
    QTest::newRow("big integer and decimal")
        << C(9007199254740993LL) << C(decimal(9007199254740992LL)) << 1;
    QTest::newRow("decimal and xdecimal") << dec << C(xdecimal("1.500")) << 0;
    QTest::newRow("decimal and xdecimal, last digit")
        << dec << C(xdecimal("1.50000000000000000000001")) << -1;
    QTest::newRow("double and decimal") << C(0.1) << C(decimal(10, 2)) << 0;
    QTest::newRow("double and integer") << C(1.5) << C(2) << -1;
    QTest::newRow("NaN and integer") << C(nan) << C(-5) << -1;
    QTest::newRow("NaN and NaN") << C(nan) << C(-nan) << 0;
    QTest::newRow("zeros") << C(-0.0) << C(0.0) << 0;
    QTest::newRow("text and integer") << C("10") << C(10) << 0;
    QTest::newRow("text and integer as texts") << C("9") << C(10) << 1;
    QTest::newRow("text and date") << C("2017.03.01 10:00:00.250") << C(someDate()) << 0;
    QTest::newRow("text lengths") << C("ab") << C("abc") << -1;
    QTest::newRow("text cases") << C("B") << C("a") << -1;
}

void TestField::comparesAcrossTypes()
{
    QFETCH(FieldConstValue, a);
    QFETCH(FieldConstValue, b);
    QFETCH(int, expected);
    QCOMPARE(a.compare(b), expected);
    QCOMPARE(b.compare(a), -expected);
}

/// That compare() is a strict weak order over these values.
void TestField::checkOrder(const QVector<FieldValue>& pool)
{
    const int count = pool.size();
    QVector<int> order(count * count);
    for (int i = 0; i < count; ++i) {
        for (int k = 0; k < count; ++k) {
            order[i * count + k] = pool[i].compare(pool[k]);
            QVERIFY(qAbs(order[i * count + k]) <= 1);
        }
    }
    for (int i = 0; i < count; ++i) {
        QCOMPARE(order[i * count + i], 0);
        for (int k = 0; k < count; ++k) {
            QCOMPARE(order[i * count + k], -order[k * count + i]);
            for (int m = 0; m < count; ++m) {
                if (order[i * count + k] <= 0 && order[k * count + m] <= 0)
                    QVERIFY2(order[i * count + m] <= 0,
                             qPrintable(QString("%1, %2, %3")
                                            .arg(pool[i].toString(), pool[k].toString(),
                                                 pool[m].toString())));
            }
        }
    }
}

void TestField::ordersEachType_data()
{
    QTest::addColumn<int>("column");
    for (int column = 0; column < columnCount; ++column)
        QTest::newRow(FieldType::typeName(columns[column].type)) << column;
}

void TestField::ordersEachType()
{
    QFETCH(int, column);
    const FieldDef def = columns[column];
    const size_t size = size_t(FieldType::typeLength(def.type, def.length));
    for (const quint32 seed : testSeeds(4)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        QVector<FieldValue> pool;
        for (int i = 0; i < 40; ++i) {
            FieldValue value = sample(column);
            if (i % 8 == 0) {
                value.setNull();
            } else if (i % 2) { // any bytes, near each other
                for (size_t k = 0; k < size; ++k)
                    value.data()[k] =
                        random.bounded(3) ? uchar(random.bounded(2)) : uchar(random.bounded(256));
            } else if (def.type <= FieldType::VarChar || def.type == FieldType::XDecimal) {
                value = random.bounded(-3, 4) * (i % 4 ? 1 : 1000);
            }
            pool.append(value);
        }
        if (def.type == FieldType::Double) {
            for (const double special : {nan, -nan, infinity, -infinity, -0.0, 0.0}) {
                pool.append(FieldConstValue(special));
            }
        }
        checkOrder(pool);
        for (const FieldValue& a : qAsConst(pool)) {
            for (const FieldValue& b : qAsConst(pool)) {
                if (!a.isNull() && !b.isNull())
                    QCOMPARE(LiveTable::compareSameType(def.type, def.length, a.data(), b.data()),
                             a.compare(b));
            }
        }
    }
}

void TestField::ordersMixedNumbers()
{
    for (const quint32 seed : testSeeds(4)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        QVector<FieldValue> pool;
        // Numbers of few digits, so that equal ones of different types are common and doubles tell
        // all of them apart.
        for (int i = 0; i < 60; ++i) {
            const int n = random.bounded(-40, 41);
            switch (random.bounded(6)) {
            case 0:
                pool.append(FieldConstValue(n));
                break;
            case 1:
                pool.append(FieldConstValue(qlonglong(n) * 1000000000));
                break;
            case 2:
                pool.append(FieldConstValue(random.bounded(10) ? n / 8.0 : nan));
                break;
            case 3:
                pool.append(FieldConstValue(decimal(n * 125, 3)));
                break;
            case 4:
                pool.append(FieldConstValue(xdecimal::fromInt64(n * 1250, 4)));
                break;
            default:
                pool.append(FieldConstValue());
            }
        }
        checkOrder(pool);
    }
}

// --- free-standing cells -------------------------------------------------------------------------

void TestField::fieldValueOwnsItsCell()
{
    TableColumnDef def;
    def.type = FieldType::VarChar;
    def.length = 40;
    def.name = "note";
    def.offset = 24;
    def.index = 3;
    def.table = reinterpret_cast<Table*>(quintptr(8));
    FieldValue note(&def);
    QVERIFY(note.isNull());
    QCOMPARE(note.columnDef()->name, QString("note"));
    QCOMPARE(note.columnDef()->size, qint64(80));
    QVERIFY(note.columnDef() != &def && !note.columnDef()->table);
    QVERIFY(note.columnDef()->offset == 0 && note.columnDef()->index == 0);
    QCOMPARE(note.data()[80], uchar(0)); // the null byte comes behind the cell
    note = "long enough to lie on the heap";
    QCOMPARE(note.data()[80], uchar(1));

    FieldValue copy(note);
    FieldValue assigned(FieldType::Integer, 0, true);
    assigned = 5;
    assigned = note;
    const FieldValue fromView{static_cast<const Field&>(note)};
    note = "changed";
    for (const FieldValue* other : {&copy, &assigned, &fromView}) {
        QCOMPARE(other->toText(), QString("long enough to lie on the heap"));
        QCOMPARE(other->columnDef()->length, 40);
    }
    copy.init(&def);
    QVERIFY(copy.isNull());
    copy.fromText(QString("<9>").midRef(1, 1));
    copy = static_cast<const FieldValue&>(copy);
    QCOMPARE(copy.toText(), QString("9"));
    copy = FieldConstValue(7LL); // takes type and value
    QCOMPARE(copy.type(), FieldType::Integer64);
    static_cast<Field&>(copy) = FieldConstValue("8"); // the value only
    QCOMPARE(copy.toInteger64(), 8);
    copy = FieldValue();
    QCOMPARE(copy.type(), FieldType::Undefined);
    QVERIFY(copy.isNull() && FieldValue(copy).isNull());

    def.type = FieldType::Integer;
    copy.init(copy.columnDef() == &def ? nullptr : &def);
    copy.init(copy.columnDef()); // its own definition
    copy = 3;
    QCOMPARE(copy.toInteger(), 3);
}

void TestField::fieldValueRefuses()
{
    FieldValue value(FieldType::Integer, 0, true);
    value = 5;
    TableColumnDef def;
    const auto init = [&] {
        value.init(&def);
        return QString();
    };
    QCOMPARE(outcome(init), QString("Q:Type is undefined."));
    def.type = FieldType::VarChar;
    QCOMPARE(outcome(init), QString("Q:Length of string can't be zero"));
    QCOMPARE(value.toInteger(), 5);
    QCOMPARE(outcome([] { return FieldValue(FieldType::Undefined, 0, true).toText(); }),
             QString("Q:Type is undefined."));
    QCOMPARE(outcome([] { return FieldConstValue("").toText(); }),
             QString("Q:Length of string can't be zero"));
}

void TestField::constants_data()
{
    QTest::addColumn<FieldConstValue>("constant");
    QTest::addColumn<FieldType::Type>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<QString>("text");
    using C = FieldConstValue;
    QTest::newRow("QChar") << C(QChar(0x42f)) << FieldType::VarChar << 1 << "Я";
    QTest::newRow("QChar 0") << C(QChar()) << FieldType::VarChar << 1 << "";
    QTest::newRow("QString") << C(QString("Ян")) << FieldType::VarChar << 2 << "Ян";
    QTest::newRow("Latin-1") << C("a\xe9") << FieldType::VarChar << 2 << "aé";
    QTest::newRow("int") << C(-5) << FieldType::Integer << 0 << "-5";
    QTest::newRow("long long") << C(5000000000LL) << FieldType::Integer64 << 0 << "5000000000";
    QTest::newRow("double") << C(0.1) << FieldType::Double << 0 << "0.1";
    QTest::newRow("decimal") << C(decimal(150, 2)) << FieldType::Decimal << 0 << "1.50";
    QTest::newRow("xdecimal") << C(xdecimal("1.50")) << FieldType::XDecimal << 0 << "1.50";
    QTest::newRow("datetime") << C(someDate()) << FieldType::DateTime << 0
                              << "2017.03.01 10:00:00.250";
}

void TestField::constants()
{
    QFETCH(FieldConstValue, constant);
    QFETCH(FieldType::Type, type);
    QFETCH(int, length);
    QFETCH(QString, text);
    const FieldConstValue again = text.isEmpty() ? constant : FieldConstValue::fromValue(constant);
    for (const FieldConstValue* value : {&constant, &again}) {
        QVERIFY(!value->isNull());
        QCOMPARE(value->type(), type);
        QCOMPARE(value->columnDef()->length, length);
        QCOMPARE(value->columnDef()->nullable, false);
        QCOMPARE(value->toText(), text);
        QCOMPARE(value->compare(constant), 0);
    }
    FieldConstValue assigned;
    assigned = constant;
    QCOMPARE(assigned.type(), type);
    assigned = "1"; // into the same type
    QCOMPARE(assigned.type(), type);
}

void TestField::constantFromField_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected"); // length and text, or what is thrown
    QTest::newRow("text") << 12 << "abc"
                          << "3 abc";
    QTest::newRow("one character") << 12 << "a"
                                   << "1 a";
    QTest::newRow("column of one") << 1 << "a"
                                   << "1 a";
    QTest::newRow("empty") << 12 << "\n"
                           << "Q:Length of string can't be zero";
    QTest::newRow("empty column of one") << 1 << "\n"
                                         << "1 ";
    QTest::newRow("NULL") << 12 << ""
                          << "NULL 1";
}

void TestField::constantFromField()
{
    QFETCH(int, length);
    QFETCH(QString, text);
    QFETCH(QString, expected);
    FieldValue cell(FieldType::VarChar, length, false);
    cell = text;
    if (text == "\n")
        std::memset(cell.data(), 0, 2); // there, but empty
    QCOMPARE(
        outcome([&] {
            const FieldConstValue constant = FieldConstValue::fromValue(cell);
            return constant.isNull()
                       ? QString("NULL %1").arg(constant.type())
                       : QString("%1 %2").arg(constant.columnDef()->length).arg(constant.toText());
        }),
        expected);
    const FieldValue boards = sample(7);
    for (const Field& none : {Field(), Field(boards)}) {
        const FieldConstValue constant = FieldConstValue::fromValue(none);
        QVERIFY(constant.isNull() && constant.type() == FieldType::Integer);
    }
}

Q_DECLARE_METATYPE(FieldType::Type)
Q_DECLARE_METATYPE(FieldConstValue)

QTEST_APPLESS_MAIN(TestField)

#include "tst_field.moc"
