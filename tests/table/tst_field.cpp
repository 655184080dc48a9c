// SPDX-License-Identifier: MIT
#include "table/cells.h"

#include <QDebug>
#include <QtTest>

#include <cstring>

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
};

void TestField::writes_data()
{
    QTest::addColumn<Write>("write");
    // For each column what the cell then prints, or what is thrown: A stands for "Can't convert
    // from %1 to %2", B for "Can't convert from '%1'' to %2", T for the message of dates, D and X
    // for those of the decimals.
    QTest::addColumn<QString>("source"); // %1
    QTest::addColumn<QString>("date");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* name, const char* source, const char* expected,
                        const Write& write, const char* date = "") {
        QTest::newRow(name) << write << QString(source) << QString(date) << QString(expected);
    };
    const char* const noDouble = "E:Can't convert double to datetime.";
    const char* const noDecimal = "E:Can't convert from decimal to datetime.";
    row("int", "Integer", "-7|-7|-7|-7.00|-7|A|-7.000|A", [](Field& f) { f = -7; });
    row("bool", "Integer", "1|1|1|1.00|1|A|1.000|A", [](Field& f) { f = true; });
    row("long", "Integer64", "8|8|8|8.00|8|A|8.000|A", [](Field& f) { f = 8L; });
    row("unsigned long", "Integer64", "9|9|9|9.00|9|A|9.000|A", [](Field& f) { f = 9UL; });
    row("unsigned", "Integer64",
        "2147483647|4294967295|4294967295|4294967295.00|4294967295|A|4294967295.000|A",
        [](Field& f) { f = 4294967295U; });
    row("long long", "Integer64",
        "-2147483648|-5000000000|-5e+09|-5000000000.00|-5000000000|A|-5000000000.000|A",
        [](Field& f) { f = -5000000000LL; });
    row(
        "double", "Double", "-2|-2|-2.7|-2.70|-2.700000|T|-2.700|A", [](Field& f) { f = -2.7; },
        noDouble);
    row(
        "double, rounded", "Double", "0|0|0.0625|0.06|0.062500|T|0.063|A",
        [](Field& f) { f = 0.0625; }, noDouble);
    row(
        "decimal", "Decimal", "-12|-12|-12.345|-12.345|-12.345|T|-12.345|A",
        [](Field& f) { f = decimal(-12345, 3); }, noDecimal);
    row(
        "xdecimal", "Decimal", "-12|-12|-12.345|-12.3450|-12.3450|T|-12.3450|A",
        [](Field& f) { f = xdecimal("-12.3450"); }, noDecimal);
    row("datetime", "DateTime", "A|A|A|A|2017.03.01 1|2017.03.01 10:00:00.250|A|A",
        [](Field& f) { f = someDate(); });
    row("datetime, unset", "DateTime", "A|A|A|A|NULL||A|A", [](Field& f) { f = datetime(); });
    row("boardlist", "BoardList", "A|A|A|A|A|A|A|[BoardList]", [](Field& f) { f = someBoards(); });
    row("text", "VarChar", "12|12|12|12|12||12|A", [](Field& f) { f = QString("12"); });
    row("bytes", "-1.5", "B|B|-1.5|-1.5|-1.5||-1.5|V", [](Field& f) { f = "-1.5"; });
    row("date", "2017-03-01 10:00:00", "B|B|B|D|2017-03-01 1|2017.03.01 10:00:00.000|X|V",
        [](Field& f) { f = QString("<2017-03-01 10:00:00>").midRef(1, 19); });
    row("text with a mark", "12x%2", "B|B|B|D|12x%2||X|V", [](Field& f) { f = QString("12x%2"); });
    const char* const nulls = "NULL|NULL|NULL|NULL|NULL|NULL|NULL|NULL";
    row("empty text", "", nulls, [](Field& f) { f = QString(""); });
    row("empty reference", "", nulls, [](Field& f) { f = QStringRef(); });
    row("no bytes", "", nulls, [](Field& f) { f = static_cast<const char*>(nullptr); });
    row("NULL", "", nulls, [](Field& f) { f = Field(); });
}

void TestField::writes()
{
    QFETCH(Write, write);
    QFETCH(QString, source);
    QFETCH(QString, date);
    QFETCH(QString, expected);
    for (int column = 0; column < columnCount; ++column) {
        const QString type = FieldType::typeName(columns[column].type);
        const QMap<QString, QString> thrown = {
            {"A", QString("E:Can't convert from %1 to %2").arg(source, type)},
            {"B", QString("E:Can't convert from '%1'' to %2").arg(source, type)},
            {"V", QString("E:Can't convert from VarChar to %1").arg(type)},
            {"T", date},
            {"D", QString("Q:Невозможно создать decimal по строке '%1'").arg(source)},
            {"X", QString("Q:Невозможно создать xdecimal по строке '%1'").arg(source)}};
        const QString wanted = expected.section('|', column, column);
        for (const bool nullBefore : {false, true}) {
            FieldValue value = sample(column);
            if (nullBefore)
                value.setNull();
            const QByteArray before = bytesOf(value);
            QCOMPARE(written(value, write), thrown.value(wanted, wanted));
            if (thrown.contains(wanted)) // every byte and the null bit are as before
                QCOMPARE(bytesOf(value), before);
        }
    }
}

void TestField::writesBetweenFields_data()
{
    QTest::addColumn<FieldType::Type>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<Write>("write");
    QTest::addColumn<Write>("same"); // writes what the cell then holds
    const auto row = [](FieldType::Type type, int length, const Write& write) {
        const QByteArray name = FieldType::typeNameWithLength(type, length).toLatin1();
        QTest::newRow(name) << type << length << write << write;
    };
    row(FieldType::Integer, 0, [](Field& f) { f = -7; });
    row(FieldType::Integer64, 0, [](Field& f) { f = 5000000000LL; });
    row(FieldType::Double, 0, [](Field& f) { f = 2.75; });
    row(FieldType::DateTime, 0, [](Field& f) { f = someDate(); });
    row(FieldType::BoardList, 0, [](Field& f) { f = someBoards(); });
    for (const int length : {2, 4}) {
        row(FieldType::Decimal, length, [](Field& f) { f = decimal(275, 3); });
        row(FieldType::XDecimal, length, [](Field& f) { f = xdecimal("2.75"); });
    }
    for (const char* text : {"17", "2.5", "2017.03.01 10:00:00.250", "much too long for it"}) {
        for (const int length : {12, 23}) {
            const QString kept = QString(text).left(length);
            QTest::addRow("VarChar[%d] %s", length, text)
                << FieldType::VarChar << length << Write([text](Field& f) { f = text; })
                << Write([kept](Field& f) { f = kept; });
        }
    }
}

void TestField::writesBetweenFields()
{
    QFETCH(FieldType::Type, type);
    QFETCH(int, length);
    QFETCH(Write, write);
    QFETCH(Write, same);
    FieldValue source(type, length, true);
    write(source);
    for (int column = 0; column < columnCount; ++column) {
        FieldValue direct = sample(column);
        FieldValue copied = sample(column);
        const QString wanted = written(direct, same);
        QCOMPARE(written(copied, [&](Field& f) { f = static_cast<Field&>(source); }), wanted);
        QCOMPARE(bytesOf(copied), bytesOf(direct));
    }
    if (type != FieldType::VarChar)
        return;
    QCOMPARE(source.toDatetime(), datetime(source.toString()));
    // A text that is there but empty, as in a new row's column that is not nullable.
    std::memset(source.data(), 0, size_t(2 * length));
    const Write copy = [&](Field& f) { f = static_cast<Field&>(source); };
    QCOMPARE(written(FieldValue(type, length, false), copy), QString());
    QCOMPARE(written(FieldValue(type, 2, false), copy), QString("NULL"));
}

void TestField::writesRescale_data()
{
    QTest::addColumn<FieldType::Type>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<Write>("write");
    QTest::addColumn<QString>("expected");
    const auto row = [](FieldType::Type type, int length, const Write& write,
                        const QString& expected) {
        QTest::addRow("%s[%d] %s", FieldType::typeName(type), length, qPrintable(expected))
            << type << length << write << expected;
    };
    const Write five = [](Field& f) { f = 5; };
    const Write fifteen = [](Field& f) { f = 15; };
    const Write third = [](Field& f) { f = 2.0 / 3; };
    const Write big = [](Field& f) { f = 1e21; };
    const Write text = [](Field& f) { f = "1.50"; };
    const Write most = [](Field& f) { f = 18446744073709551615ULL; };
    const Write longer = [](Field& f) { f = xdecimal("12345678901234567890.12"); };
    const auto dec = FieldType::Decimal;
    row(dec, 4, five, "5.0000");
    row(dec, -1, fifteen, "20");
    row(dec, 20, five, "5.0000000000000000"); // stops where the mantissa is full
    row(dec, 70000, five, "5.0000000000000000");
    row(dec, 4, third, "0.6667");
    row(dec, 8, third, "0.66666700");
    row(dec, 2, big, "Q:decimal:overflow");
    row(dec, 4, text, "1.50");
    row(dec, 0, most, "18446744073709551000");
    row(dec, 1, longer, "12345678901234568000");
    const auto xdec = FieldType::XDecimal;
    row(xdec, 25, five, "5.0000000000000000000000000");
    row(xdec, 26, five, "C:xdecimal:bad operand");
    row(xdec, 63, five, "C:xdecimal:bad operand");
    row(xdec, 65536, five, "C:xdecimal:bad operand");
    row(xdec, 4, third, "0.6667");
    row(xdec, 2, big, "C:xdecimal:overflow");
    row(xdec, 4, text, "1.50");
    row(xdec, 1, most, "18446744073709551615.0");
}

void TestField::writesRescale()
{
    QFETCH(FieldType::Type, type);
    QFETCH(int, length);
    QFETCH(Write, write);
    QFETCH(QString, expected);
    FieldValue value(type, length, true);
    QCOMPARE(written(value, write), expected);
    QCOMPARE(value.isNull(), expected.contains(':'));
}

void TestField::writesAtTheLimits_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("integer");
    QTest::addColumn<QString>("integer64");
    const auto row = [](const char* name, double value, const QString& integer,
                        const QString& integer64) {
        QTest::newRow(name) << value << integer << integer64;
    };
    row("nan", quietNan, "0", "0");
    row("infinity", infinity, "2147483647", "9223372036854775807");
    row("-infinity", -infinity, "-2147483648", "-9223372036854775808");
    row("2^31 - 0.5", 2147483647.5, "2147483647", "2147483647");
    row("2^31", 2147483648.0, "2147483647", "2147483648");
    row("-2^31 - 1", -2147483649.0, "-2147483648", "-2147483649");
    row("2^63", 9223372036854775808.0, "2147483647", "9223372036854775807");
    row("-2^63", -9223372036854775808.0, "-2147483648", "-9223372036854775808");
}

void TestField::writesAtTheLimits()
{
    QFETCH(double, value);
    FieldValue narrow(FieldType::Integer, 0, true);
    FieldValue wide(FieldType::Integer64, 0, true);
    const Write write = [value](Field& f) { f = value; };
    QTEST(written(narrow, write), "integer");
    QTEST(written(wide, write), "integer64");
    QCOMPARE(wide.toInteger(), narrow.toInteger());
    QCOMPARE(written(wide, [](Field& f) { f = 18446744073709551615ULL; }),
             QString("9223372036854775807"));
}

void TestField::reads_data()
{
    QTest::addColumn<Read>("read");
    QTest::addColumn<QStringList>("expected"); // for each column, then for NULL
    const auto row = [](const char* name, const QStringList& expected, const Read& read) {
        QTest::newRow(name) << read << expected;
    };
    const auto orNull = [](const QString& text) { return text.isNull() ? "null" : text; };
    const auto typed = [](const QVariant& v) {
        return QString("%1 %2").arg(v.isValid() ? v.typeName() : "invalid", v.toString());
    };
    const QString three = QLocale::system().toString(-3);
    const QString x = "E:Incorrect type conversion.";
    const QString t = "Q:Incorrect type of field.";
    const QString date = someDate().toString();
    row("toInteger", {"-3", "-3", x, x, x, x, x, x, "0"},
        [](const Field& f) { return QString::number(f.toInteger()); });
    row("toInteger64", {"-3", "-3", x, x, x, x, x, x, "0"},
        [](const Field& f) { return QString::number(f.toInteger64()); });
    row("toDouble", {"-3", "-3", "-3", "-3", x, x, "-3", x, "0"},
        [](const Field& f) { return QString::number(f.toDouble()); });
    row("toDecimal", {x, x, x, "-3.00", x, x, x, x, "0"},
        [](const Field& f) { return f.toDecimal().toString(); });
    row("toXDecimal", {x, x, x, "-3.00", x, x, "-3.000", x, "0"},
        [](const Field& f) { return f.toXDecimal().toString(); });
    row("toDatetime", {x, x, x, x, "", date, x, x, ""},
        [](const Field& f) { return f.toDatetime().toString(); });
    row("toBoardList", {x, x, x, x, x, x, x, "10:2 9:1", ""},
        [](const Field& f) { return f.toBoardList().toString(); });
    row("toString", {"-3", "-3", "-3", "-3.00", "-3", date, "-3.000", "[BoardList]", "null"},
        [=](const Field& f) { return orNull(f.toString()); });
    row("toSystemString",
        {three, three, three, decimal(-300, 2).toSystemString(), "-3", someDate().toSystemString(),
         xdecimal("-3.000").toSystemString(), "10:2 9:1", "null"},
        [=](const Field& f) { return orNull(f.toSystemString()); });
    row("asStaticString", {t, t, t, t, "-3", t, t, t, ""},
        [](const Field& f) { return QString(f.asStaticString()); });
    row("toVariant",
        {"int -3", "qlonglong -3", "double -3", "decimal -3.00", "QString -3",
         "QDateTime 2017-03-01T10:00:00.250Z", "xdecimal -3.000", "QString 10:2 9:1", "invalid "},
        [=](const Field& f) { return typed(f.toVariant()); });
}

void TestField::reads()
{
    QFETCH(Read, read);
    QFETCH(QStringList, expected);
    for (int column = 0; column < columnCount; ++column) {
        FieldValue value = sample(column);
        QCOMPARE(outcome([&] { return read(value); }), expected.at(column));
        value.setNull(); // looked at before the type
        QCOMPARE(outcome([&] { return read(value); }), expected.last());
    }
}

void TestField::readsCharacters_data()
{
    QTest::addColumn<int>("length"); // -1: a column of another type
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("toChar");
    QTest::addColumn<QString>("asChar");
    const auto row = [](const char* name, int length, const QString& text, const QString& toChar,
                        const QString& asChar) {
        QTest::newRow(name) << length << text << toChar << asChar;
    };
    const QString zero = QChar();
    const QString type = "Q:Incorrect type of field.";
    const QString null = "Q:String is null for QChar";
    const QString message = "Q:String length is not 1 for QChar: %1.";
    row("one", 1, "Я", "Я", "Я");
    row("null", 1, "", zero, null);
    row("one in a column of two", 2, "Я", message.arg(2), message.arg(2));
    row("column of none", 0, "Я", zero, message.arg(0));
    row("number", -1, "5", type, type);
    row("null number", -1, "", zero, null);
}

void TestField::readsCharacters()
{
    QFETCH(int, length);
    QFETCH(QString, text);
    TableColumnDef def;
    def.type = length < 0 ? FieldType::Integer : FieldType::VarChar;
    def.length = qMax(length, 0);
    alignas(8) unsigned char data[8] = {};
    unsigned char nullByte = 0;
    Field field(&def, data, &nullByte, 1);
    field = text;
    QTEST(outcome([&] { return QString(field.toChar()); }), "toChar");
    QTEST(outcome([&] { return QString(field.asChar()); }), "asChar");
}

void TestField::namesTypes()
{
    const char* const names[] = {"Invalid", "Integer",  "Integer64", "Double",   "Decimal",
                                 "String",  "DateTime", "undefined", "XDecimal", "undefined"};
    TableColumnDef def;
    unsigned char nullByte = 1;
    const Field field(&def, nullptr, &nullByte, 1);
    QCOMPARE(field.toString(), QString());
    for (int type = 0; type < 10; ++type) {
        def.type = static_cast<FieldType::Type>(type);
        QCOMPARE(field.typeName(), names[type]);
    }
    QCOMPARE(outcome([&] { return field.toString(); }), QString("Q:Incorrect type of field."));
    QVERIFY(!field.toVariant().isValid());
}

void TestField::printsToDebug()
{
    QString text;
    QDebug(&text) << FieldConstValue(5) << FieldConstValue() << FieldConstValue("a\"b") << 1;
    QCOMPARE(text, QString("\"5\" NULL \"a\\\"b\" 1 "));
}

QTEST_APPLESS_MAIN(TestField)

#include "tst_field.moc"
