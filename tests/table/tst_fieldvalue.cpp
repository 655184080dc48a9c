// SPDX-License-Identifier: MIT
#include "support/seed.h"
#include "table/cell_p.h"
#include "table/cells.h"
#include "table/table.h"

#include <QRandomGenerator>
#include <QtTest>

#include <cmath>

class TestFieldValue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
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
    void fieldValueTakesAColumn();
    void constants_data();
    void constants();
    void constantFromField_data();
    void constantFromField();

private:
    static void checkOrder(const QVector<FieldValue>& pool);
};

// --- the cell ------------------------------------------------------------------------------------

void TestFieldValue::undefinedCellIsNull()
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

void TestFieldValue::nullFlagIsItsOwnBit()
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

void TestFieldValue::unwrittenXDecimalIsZero()
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
    row("NULL and the least number", null, -infinity, -1);
    row("NULL and NaN", null, quietNan, -1);
    row("scales", dec, decimal(15, 1), 0);
    row("both integers", 5, 5LL, 0);
    row("integers beyond doubles", 9007199254740993LL, 9007199254740992LL, 1);
    row("integer and decimal", 1, dec, -1);
    row("big integer and decimal", 9007199254740993LL, decimal(9007199254740992LL), 1);
    row("decimal and xdecimal", dec, xdecimal("1.500"), 0);
    row("decimal and xdecimal, last digit", dec, xdecimal("1.50000000000000000000001"), -1);
    row("double and decimal", 0.1, decimal(10, 2), 0);
    row("double and integer", 1.5, 2, -1);
    row("NaN and integer", quietNan, -5, -1);
    row("NaN and NaN", quietNan, -quietNan, 0);
    row("zeros", -0.0, 0.0, 0);
    row("text and integer", "10", 10, 0);
    row("text and integer as texts", "9", 10, 1);
    row("text and date", "2017.03.01 10:00:00.250", someDate(), 0);
    row("text lengths", "ab", "abc", -1);
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

/// That compare() is a strict weak order over these values.
void TestFieldValue::checkOrder(const QVector<FieldValue>& pool)
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
                if (order[i * count + k] > 0 || order[k * count + m] > 0 ||
                    order[i * count + m] <= 0)
                    continue;
                QFAIL(qPrintable(pool[i].toString() + ", " + pool[k].toString() + ", " +
                                 pool[m].toString()));
            }
        }
    }
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
            for (const double special : {quietNan, -quietNan, infinity, -infinity, -0.0, 0.0}) {
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

void TestFieldValue::ordersMixedNumbers()
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
                pool.append(FieldConstValue(random.bounded(10) ? n / 8.0 : quietNan));
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

void TestFieldValue::fieldValueOwnsItsCell()
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
    QCOMPARE(bytesOf(copy), bytesOf(note));
    FieldValue assigned(FieldType::Integer, 0, true);
    assigned = 5;
    assigned = note;
    const FieldValue fromView{static_cast<const Field&>(note)};
    note = "changed";
    for (const FieldValue& other : {copy, assigned, fromView}) {
        QCOMPARE(other.toText(), QString("long enough to lie on the heap"));
        QCOMPARE(other.columnDef()->length, 40);
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

void TestFieldValue::fieldValueRefuses()
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

void TestFieldValue::fieldValueTakesAColumn()
{
    Table table("t", QString(), nullptr);
    table.addColumn("id", FieldType::Integer, 0, false, QString(), true, QString());
    table.addColumn("name", FieldType::VarChar, 5, true, QString(), true, QString());
    for (const FieldValue& value : {FieldValue(&table, 1), FieldValue(&table, "name")}) {
        QCOMPARE(value.columnDef()->name, QString("name"));
        QCOMPARE(value.columnDef()->fieldDef(), FieldDef(FieldType::VarChar, 5));
        QVERIFY(value.isNull() && value.columnDef()->offset == 0);
    }
    QCOMPARE(outcome([&] { return FieldValue(&table, "Name").toText(); }),
             QString("Q:Column 'Name' not found."));
    for (const int column : {-1, 2})
        QCOMPARE(outcome([&] { return FieldValue(&table, column).toText(); }),
                 QString("Q:Column '%1' not found.").arg(column));
}

void TestFieldValue::constants_data()
{
    QTest::addColumn<FieldConstValue>("constant");
    QTest::addColumn<FieldType::Type>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* name, const FieldConstValue& constant, FieldType::Type type,
                        int length, const char* text) {
        QTest::newRow(name) << constant << type << length << QString(text);
    };
    row("QChar", QChar(0x42f), FieldType::VarChar, 1, "Я");
    row("QChar 0", QChar(), FieldType::VarChar, 1, "");
    row("QString", QString("Ян"), FieldType::VarChar, 2, "Ян");
    row("Latin-1", "a\xe9", FieldType::VarChar, 2, "aé");
    row("int", -5, FieldType::Integer, 0, "-5");
    row("long long", 5000000000LL, FieldType::Integer64, 0, "5000000000");
    row("double", 0.1, FieldType::Double, 0, "0.1");
    row("decimal", decimal(150, 2), FieldType::Decimal, 0, "1.50");
    row("xdecimal", xdecimal("1.50"), FieldType::XDecimal, 0, "1.50");
    row("datetime", someDate(), FieldType::DateTime, 0, "2017.03.01 10:00:00.250");
}

void TestFieldValue::constants()
{
    QFETCH(FieldConstValue, constant);
    QFETCH(FieldType::Type, type);
    QFETCH(int, length);
    QFETCH(QString, text);
    const FieldConstValue again = text.isEmpty() ? constant : FieldConstValue::fromValue(constant);
    for (const FieldConstValue& value : {constant, again}) {
        QVERIFY(!value.isNull());
        QCOMPARE(value.type(), type);
        QCOMPARE(value.columnDef()->length, length);
        QCOMPARE(value.columnDef()->nullable, false);
        QCOMPARE(value.toText(), text);
        QCOMPARE(value.compare(constant), 0);
    }
    FieldConstValue assigned;
    assigned = constant;
    QCOMPARE(assigned.type(), type);
    assigned = "1"; // into the same type
    QCOMPARE(assigned.type(), type);
}

void TestFieldValue::constantFromField_data()
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

void TestFieldValue::constantFromField()
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

QTEST_APPLESS_MAIN(TestFieldValue)

#include "tst_fieldvalue.moc"
