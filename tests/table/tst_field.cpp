// SPDX-License-Identifier: MIT
#include "table/cells.h"

#include <QDebug>
#include <QtTest>

class TestField : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writes_data();
    void writes();
    void writesBetweenFields_data();
    void writesBetweenFields();
    void copiesAnEmptyText();
    void writesRescale_data();
    void writesRescale();
    void writesAtTheLimits_data();
    void writesAtTheLimits();

    void reads_data();
    void reads();
    void readsDatesFromText();
    void readsCharacters_data();
    void readsCharacters();
    void namesTypes();
    void printsToDebug();
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
        {"2147483647", "4294967295", "4294967295", "4294967295.00", "4294967295", "A",
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
    QTest::addColumn<Write>("write");
    QTest::addColumn<Write>("same"); // writes what the cell then holds
    const auto row = [](FieldType::Type type, int length, const Write& write) {
        const QByteArray name = FieldType::typeNameWithLength(type, length).toLatin1();
        QTest::newRow(name) << type << length << write << write;
    };
    row(FieldType::Integer, 0, [](Field& f) { f = -7; });
    row(FieldType::Integer64, 0, [](Field& f) { f = 5000000000LL; });
    row(FieldType::Double, 0, [](Field& f) { f = 2.75; });
    for (const int length : {2, 4}) {
        row(FieldType::Decimal, length, [](Field& f) { f = decimal(275, 3); });
        row(FieldType::XDecimal, length, [](Field& f) { f = xdecimal("2.75"); });
    }
    row(FieldType::DateTime, 0, [](Field& f) { f = someDate(); });
    row(FieldType::BoardList, 0, [](Field& f) { f = someBoards(); });
    for (const char* text : {"17", "2.5", "2017-03-01", "much too long for it", "z"}) {
        for (const int length : {12, 30}) {
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
}

void TestField::copiesAnEmptyText()
{
    // A text that is there but empty: what a new row has in a column that is not nullable.
    FieldValue empty(FieldType::VarChar, 3, false);
    empty.data()[8] = 1;
    QVERIFY(!empty.isNull());
    const Write copy = [&empty](Field& f) { f = static_cast<Field&>(empty); };
    QCOMPARE(written(FieldValue(FieldType::VarChar, 2, false), copy), QString("NULL"));
    const FieldValue equal(FieldType::VarChar, 3, false);
    QCOMPARE(written(equal, copy), QString());
    QVERIFY(!equal.isNull());
}

void TestField::writesRescale_data()
{
    QTest::addColumn<FieldType::Type>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<Write>("write");
    QTest::addColumn<QString>("expected");
    const auto row = [](FieldType::Type type, int length, const char* name, const Write& write,
                        const char* expected) {
        QTest::addRow("%s[%d], %s", FieldType::typeName(type), length, name)
            << type << length << write << QString(expected);
    };
    const Write five = [](Field& f) { f = 5; };
    const Write fifteen = [](Field& f) { f = 15; };
    const Write third = [](Field& f) { f = 2.0 / 3; };
    const Write big = [](Field& f) { f = 1e21; };
    const Write endless = [](Field& f) { f = infinity; };
    const Write text = [](Field& f) { f = "1.50"; };
    const Write most = [](Field& f) { f = 18446744073709551615ULL; };
    const Write longer = [](Field& f) { f = xdecimal("12345678901234567890.12"); };
    const auto dec = FieldType::Decimal;
    row(dec, 4, "int", five, "5.0000");
    row(dec, 0, "int", five, "5");
    row(dec, -1, "int", fifteen, "20");
    row(dec, 20, "int", five, "5.0000000000000000"); // stops where the mantissa is full
    row(dec, 70000, "int", five, "5.0000000000000000");
    row(dec, 4, "double", third, "0.6667");
    row(dec, 8, "double, six digits at most", third, "0.66666700");
    row(dec, 2, "double, too big", big, "Q:decimal:overflow");
    row(dec, 4, "text keeps its scale", text, "1.50");
    row(dec, 0, "unsigned, cut", most, "18446744073709551000");
    row(dec, 1, "xdecimal, rounded", longer, "12345678901234568000");
    const auto xdec = FieldType::XDecimal;
    row(xdec, 4, "int", five, "5.0000");
    row(xdec, 25, "int", five, "5.0000000000000000000000000");
    row(xdec, 26, "int, no room", five, "C:xdecimal:bad operand");
    row(xdec, 63, "int, no such scale", five, "C:xdecimal:bad operand");
    row(xdec, 65536, "int, no such scale", five, "C:xdecimal:bad operand");
    row(xdec, 4, "double", third, "0.6667");
    row(xdec, 2, "double, too big", big, "C:xdecimal:overflow");
    row(xdec, 2, "infinity", endless, "C:xdecimal:overflow");
    row(xdec, 4, "text keeps its scale", text, "1.50");
    row(xdec, 1, "unsigned", most, "18446744073709551615.0");
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
    const auto row = [](const char* name, double value, const char* integer,
                        const char* integer64) {
        QTest::newRow(name) << value << QString(integer) << QString(integer64);
    };
    row("nan", quietNan, "0", "0");
    row("infinity", infinity, "2147483647", "9223372036854775807");
    row("-infinity", -infinity, "-2147483648", "-9223372036854775808");
    row("2^31 - 0.5", 2147483647.5, "2147483647", "2147483647");
    row("2^31", 2147483648.0, "2147483647", "2147483648");
    row("-2^31 - 0.5", -2147483648.5, "-2147483648", "-2147483648");
    row("-2^31 - 1", -2147483649.0, "-2147483648", "-2147483649");
    row("below 2^63", 9223372036854774784.0, "2147483647", "9223372036854774784");
    row("2^63", 9223372036854775808.0, "2147483647", "9223372036854775807");
    row("-2^63", -9223372036854775808.0, "-2147483648", "-9223372036854775808");
    row("-0.9", -0.9, "0", "0");
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
    const auto row = [](const char* name, const Read& read, const QStringList& expected) {
        QTest::newRow(name) << read << expected;
    };
    const auto orNull = [](const QString& text) { return text.isNull() ? "null" : text; };
    const auto typed = [](const QVariant& v) {
        return QString("%1 %2").arg(v.isValid() ? v.typeName() : "invalid", v.toString());
    };
    const QLocale system = QLocale::system();
    const QString x = "E:Incorrect type conversion.";
    const QString t = "Q:Incorrect type of field.";
    const QString date = someDate().toString();
    row("toInteger", [](const Field& f) { return QString::number(f.toInteger()); },
        {"-3", "-3", x, x, x, x, x, x, "0"});
    row("toInteger64", [](const Field& f) { return QString::number(f.toInteger64()); },
        {"-3", "-3", x, x, x, x, x, x, "0"});
    row("toDouble", [](const Field& f) { return QString::number(f.toDouble()); },
        {"-3", "-3", "-3", "-3", x, x, "-3", x, "0"});
    row("toDecimal", [](const Field& f) { return f.toDecimal().toString(); },
        {x, x, x, "-3.00", x, x, x, x, "0"});
    row("toXDecimal", [](const Field& f) { return f.toXDecimal().toString(); },
        {x, x, x, "-3.00", x, x, "-3.000", x, "0"});
    row("toDatetime", [](const Field& f) { return f.toDatetime().toString(); },
        {x, x, x, x, "", date, x, x, ""});
    row("toBoardList", [](const Field& f) { return f.toBoardList().toString(); },
        {x, x, x, x, x, x, x, "10:2 9:1", ""});
    row("toString", [=](const Field& f) { return orNull(f.toString()); },
        {"-3", "-3", "-3", "-3.00", "-3", date, "-3.000", "[BoardList]", "null"});
    row("toSystemString", [=](const Field& f) { return orNull(f.toSystemString()); },
        {system.toString(-3), system.toString(-3), system.toString(-3.0),
         decimal(-300, 2).toSystemString(), "-3", someDate().toSystemString(),
         xdecimal("-3.000").toSystemString(), "10:2 9:1", "null"});
    row("asStaticString", [](const Field& f) { return QString(f.asStaticString()); },
        {t, t, t, t, "-3", t, t, t, ""});
    row("toVariant", [=](const Field& f) { return typed(f.toVariant()); },
        {"int -3", "qlonglong -3", "double -3", "decimal -3.00", "QString -3",
         "QDateTime 2017-03-01T10:00:00.250Z", "xdecimal -3.000", "QString 10:2 9:1", "invalid "});
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

void TestField::readsDatesFromText()
{
    // Exactly as long as the column, so that no terminator follows.
    FieldValue value(FieldType::VarChar, 23, true);
    value = someDate();
    QCOMPARE(value.toDatetime(), someDate());
    FieldValue date(FieldType::DateTime, 0, true);
    static_cast<Field&>(date) = value;
    QCOMPARE(date.toDatetime(), someDate());
}

void TestField::readsCharacters_data()
{
    QTest::addColumn<int>("length"); // -1: a column of another type
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("toChar");
    QTest::addColumn<QString>("asChar");
    const auto row = [](const char* name, int length, const char* text, const char* toChar,
                        const char* asChar) {
        QTest::newRow(name) << length << QString(text) << QString(toChar) << QString(asChar);
    };
    const char* const type = "Q:Incorrect type of field.";
    const char* const null = "Q:String is null for QChar";
    const char* const two = "Q:String length is not 1 for QChar: 2.";
    row("one", 1, "Я", "042f", "042f");
    row("null", 1, "", "0000", null);
    row("one in a column of two", 2, "Я", two, two);
    row("column of none", 0, "Я", "0000", "Q:String length is not 1 for QChar: 0.");
    row("number", -1, "5", type, type);
    row("null number", -1, "", "0000", null);
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
    QCOMPARE(text, QString("\"5\" NULL \"a\\\"b\" 1 "));
}

QTEST_APPLESS_MAIN(TestField)

#include "tst_field.moc"
