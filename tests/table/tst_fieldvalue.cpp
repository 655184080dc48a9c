// SPDX-License-Identifier: MIT
#include "support/seed.h"
#include "table/cell_p.h"
#include "table/cells.h"
#include "table/table.h"

#include <QRandomGenerator>
#include <QtTest>

class TestFieldValue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void undefinedCellIsNull();
    void nullFlagIsItsOwnBit();
    void anyBytesOfAnXDecimalAreRead();
    void comparesAcrossTypes_data();
    void comparesAcrossTypes();
    void ordersEachType_data();
    void ordersEachType();
    void ordersMixedNumbers();
    void ownsItsCell();
    void refuses();
    void constants_data();
    void constants();
    void constantFromField();
};

namespace {

/// Whether compare() is a strict weak order over these values.
bool isOrdered(const QVector<FieldValue>& pool)
{
    bool ordered = true;
    for (const FieldValue& a : pool) {
        for (const FieldValue& b : pool) {
            const int ab = a.compare(b);
            ordered = ordered && ab >= -1 && ab <= 1 && ab == -b.compare(a);
            for (const FieldValue& c : pool)
                ordered = ordered && (ab > 0 || b.compare(c) > 0 || a.compare(c) <= 0);
        }
    }
    return ordered;
}

} // namespace

void TestFieldValue::undefinedCellIsNull()
{
    Field field;
    QCOMPARE(field.type(), FieldType::Undefined);
    QCOMPARE(written(field, [](Field& f) { f = 5; }),
             QString("E:Can't convert from Integer to Undefined"));
    QCOMPARE(written(field, [](Field& f) { f = "x"; }),
             QString("E:Can't convert from VarChar to Undefined"));
    QCOMPARE(written(field, [](Field& f) { f = static_cast<Field&>(f); }), QString("NULL"));
    QVERIFY(Field().isNull() && field.compare(Field()) == 0);
}

void TestFieldValue::nullFlagIsItsOwnBit()
{
    TableColumnDef def;
    def.type = FieldType::Integer;
    unsigned char data[4] = {};
    for (int bit = 0; bit < 8; ++bit) {
        unsigned char nullByte = 0xA5;
        Field field(&def, data, &nullByte, quint8(1 << bit));
        QCOMPARE(field.isNull(), (0xA5 >> bit & 1) == 0);
        field = bit;
        QCOMPARE(int(nullByte), 0xA5 | 1 << bit);
        field.setNull();
        QCOMPARE(int(nullByte), 0xA5 & ~(1 << bit));
        QCOMPARE(LiveTable::load<qint32>(data), bit); // the bytes stay
    }
}

void TestFieldValue::anyBytesOfAnXDecimalAreRead()
{
    // Zero bytes with the value bit set: a column added to rows that were there before.
    FieldValue value(FieldType::XDecimal, 2, false);
    value.data()[16] = 1;
    QCOMPARE(value.toString(), QString("0"));
    QCOMPARE(value.compare(FieldConstValue(xdecimal(0))), 0);
    std::memset(value.data(), 0xff, 16);
    QCOMPARE(value.toString(), QString("NaN"));
    QCOMPARE(value.compare(value), 0);
    FieldValue integer(FieldType::Integer, 0, false);
    static_cast<Field&>(integer) = value;
    QCOMPARE(integer.toInteger(), 0);
}

void TestFieldValue::comparesAcrossTypes_data()
{
    QTest::addColumn<FieldConstValue>("a");
    QTest::addColumn<FieldConstValue>("b");
    QTest::addColumn<int>("expected");
    using C = FieldConstValue;
    const auto row = [](const char* name, const C& a, const C& b, int expected) {
        QTest::newRow(name) << a << b << expected;
    };
    const C null;
    const C dec(decimal(150, 2));
    row("NULL and NULL", null, null, 0);
    row("NULL and NaN", null, quietNan, -1);
    row("both integers", 5, 5LL, 0);
    row("integers beyond doubles", 9007199254740993LL, 9007199254740992LL, 1);
    row("big integer and decimal", 9007199254740993LL, decimal(9007199254740992LL), 1);
    row("decimal and xdecimal", dec, xdecimal("1.500"), 0);
    row("decimal and xdecimal, last digit", dec, xdecimal("1.50000000000000000000001"), -1);
    row("double and decimal", 0.1, decimal(10, 2), 0);
    row("double and integer", 1.5, 2, -1);
    row("NaN and integer", quietNan, -5, -1);
    row("NaN and least double", quietNan, -infinity, -1);
    row("NaN and NaN", quietNan, -quietNan, 0);
    row("zeros", -0.0, 0.0, 0);
    row("text and integer", "10", 10, 0);
    row("text and integer as texts", "9", 10, 1);
    row("text and date", "2017.03.01 10:00:00.250", someDate(), 0);
    row("text lengths", "abcdef", "abcdefgh", -1);
    row("text cases", "B", "a", -1);
}

void TestFieldValue::comparesAcrossTypes()
{
    QFETCH(FieldConstValue, a);
    QFETCH(FieldConstValue, b);
    QFETCH(int, expected);
    QCOMPARE(a.compare(b), expected);
    QCOMPARE(b.compare(a), -expected);
}

void TestFieldValue::ordersEachType_data()
{
    QTest::addColumn<int>("column");
    for (int column = 0; column < columnCount; ++column)
        QTest::newRow(FieldType::typeName(columns[column].type)) << column;
}

void TestFieldValue::ordersEachType()
{
    QFETCH(int, column);
    const FieldDef def = columns[column];
    for (const quint32 seed : testSeeds(4)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        QVector<FieldValue> pool(40, sample(column));
        for (int i = 0; i < pool.size(); ++i) {
            for (qint64 k = FieldType::typeLength(def.type, def.length) - 1; i % 2 && k >= 0; --k)
                pool[i].data()[k] = uchar(random.bounded(random.bounded(3) ? 2 : 256));
            if (i % 8 == 0)
                pool[i].setNull();
            else if (i % 4 == 0 && def.type != FieldType::BoardList)
                pool[i].fromText(QString::number(random.bounded(-3, 4)));
        }
        QVERIFY(isOrdered(pool));
        for (const FieldValue& a : qAsConst(pool)) {
            for (const FieldValue& b : qAsConst(pool)) {
                if (!a.isNull() && !b.isNull())
                    QCOMPARE(LiveTable::compareSameType(def.type, def.length, a.data(), b.data()),
                             a.compare(b));
            }
        }
    }
}

void TestFieldValue::ordersMixedNumbers()
{
    for (const quint32 seed : testSeeds(4)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        QVector<FieldValue> pool = {FieldConstValue(), FieldConstValue(quietNan)};
        // Numbers of few digits: equal ones of different types are common, and doubles tell all of
        // them apart.
        for (int i = 0; i < 12; ++i) {
            const int n = random.bounded(-40, 41);
            pool.append(FieldConstValue(n));
            pool.append(FieldConstValue(qlonglong(n) * 1000000000));
            pool.append(FieldConstValue(n / 8.0));
            pool.append(FieldConstValue(decimal(n * 125, 3)));
            pool.append(FieldConstValue(xdecimal::fromInt64(n * 1250, 4)));
        }
        QVERIFY(isOrdered(pool));
    }
}

void TestFieldValue::ownsItsCell()
{
    Table table("t", QString(), nullptr);
    table.addColumn("id", FieldType::Integer, 0, false, QString(), true, QString());
    table.addColumn("note", FieldType::VarChar, 40, true, QString(), true, QString());
    FieldValue note(&table, "note");
    FieldValue copy(&table, 1);
    for (const FieldValue& value : {note, copy, FieldValue(table.columnDef(1))}) {
        QCOMPARE(value.columnDef()->name, QString("note"));
        QVERIFY(value.isNull() && !value.columnDef()->table);
        QVERIFY(value.columnDef()->offset == 0 && value.columnDef()->index == 0);
        QCOMPARE(bytesOf(value), QByteArray(81, '\0')); // the null byte comes behind the cell
    }
    note = "long enough to lie on the heap";
    FieldValue assigned(FieldType::Integer, 0, true);
    assigned = 5;
    assigned = note;
    const FieldValue fromView{static_cast<const Field&>(note)};
    const QByteArray bytes = bytesOf(note);
    note = "changed";
    QCOMPARE(bytesOf(assigned), bytes);
    QCOMPARE(bytesOf(fromView), bytes);
    assigned.fromText(QString("<9>").midRef(1, 1));
    assigned = static_cast<const FieldValue&>(assigned);
    QCOMPARE(assigned.toText(), QString("9"));

    copy = FieldConstValue(7LL); // takes type and value
    QCOMPARE(copy.type(), FieldType::Integer64);
    static_cast<Field&>(copy) = FieldConstValue("8"); // takes the value only
    copy = FieldValue(copy);
    QCOMPARE(copy.toInteger64(), 8);
    copy.init(copy.columnDef()); // its own definition
    QVERIFY(copy.isNull() && copy.type() == FieldType::Integer64);
    copy = FieldValue();
    QVERIFY(FieldValue(copy).isNull() && copy.type() == FieldType::Undefined);
}

void TestFieldValue::refuses()
{
    Table table("t", QString(), nullptr);
    QCOMPARE(outcome([&] { return FieldValue(&table, "a").toText(); }),
             QString("Q:Column 'a' not found."));
    QCOMPARE(outcome([&] { return FieldValue(&table, -1).toText(); }),
             QString("Q:Column '-1' not found."));
    QCOMPARE(outcome([] { return FieldValue(FieldType::Undefined, 0, true).toText(); }),
             QString("Q:Type is undefined."));
    QCOMPARE(outcome([] { return FieldConstValue("").toText(); }),
             QString("Q:Length of string can't be zero"));
    FieldValue value = FieldConstValue(5);
    const TableColumnDef undefined;
    QVERIFY_EXCEPTION_THROWN(value.init(&undefined), QString);
    QCOMPARE(value.toInteger(), 5);
}

void TestFieldValue::constants_data()
{
    QTest::addColumn<FieldConstValue>("constant");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* type, const FieldConstValue& constant, const QString& text) {
        QTest::addRow("%s %s", type, qPrintable(text)) << constant << QString(type) << text;
    };
    row("VarChar[1]", QChar(0x42f), "Я");
    row("VarChar[1]", QChar(), "");
    row("VarChar[2]", QString("Ян"), "Ян");
    row("VarChar[2]", "a\xe9", "aé");
    row("Integer", -5, "-5");
    row("Integer64", 5000000000LL, "5000000000");
    row("Double", 0.1, "0.1");
    row("Decimal[0]", decimal(150, 2), "1.50");
    row("XDecimal[0]", xdecimal("1.50"), "1.50");
    row("DateTime", someDate(), "2017.03.01 10:00:00.250");
}

void TestFieldValue::constants()
{
    QFETCH(FieldConstValue, constant);
    FieldConstValue assigned;
    assigned = constant;
    for (const auto& value : {constant, assigned, FieldConstValue::fromValue(constant)}) {
        const TableColumnDef& def = *value.columnDef();
        QTEST(FieldType::typeNameWithLength(def.type, def.length), "type");
        QTEST(value.toText(), "text");
        QVERIFY(!value.isNull() && !def.nullable);
        QCOMPARE(value.compare(constant), 0);
    }
}

void TestFieldValue::constantFromField()
{
    FieldValue cell(FieldType::VarChar, 12, false);
    cell = "abc";
    QCOMPARE(FieldConstValue::fromValue(cell).columnDef()->length, 3);
    std::memset(cell.data(), 0, 24); // there, but empty
    QCOMPARE(outcome([&] { return FieldConstValue::fromValue(cell).toText(); }),
             QString("Q:Length of string can't be zero"));
    cell.setNull();
    const FieldValue boards = sample(7);
    for (const Field& none : {Field(), Field(boards), Field(cell)}) {
        const FieldConstValue constant = FieldConstValue::fromValue(none);
        QVERIFY(constant.isNull() && constant.type() == FieldType::Integer);
    }
}

QTEST_APPLESS_MAIN(TestFieldValue)

#include "tst_fieldvalue.moc"
