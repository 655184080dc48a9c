// SPDX-License-Identifier: MIT
#include "support/outcome.h"
#include "support/seed.h"
#include "table/table.h"

#include <QDataStream>
#include <QDebug>
#include <QRandomGenerator>
#include <QtTest>

#include <cstring>
#include <functional>
#include <limits>

namespace {

constexpr auto infinity = std::numeric_limits<double>::infinity();
constexpr auto quietNan = std::numeric_limits<double>::quiet_NaN();
constexpr int columnCount = 8;
const FieldDef columns[] = {{FieldType::Integer, 0},  {FieldType::Integer64, 0},
                            {FieldType::Double, 0},   {FieldType::Decimal, 2},
                            {FieldType::VarChar, 12}, {FieldType::DateTime, 0},
                            {FieldType::XDecimal, 3}, {FieldType::BoardList, 0}};
using Write = std::function<void(Field&)>;

template <class T>
Write put(T value)
{
    return [value](Field& f) { f = value; };
}

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

/// A cell of each column with a value in it.
FieldValue sample(int column)
{
    FieldValue value(columns[column].type, columns[column].length, true);
    const bool isDate = value.type() == FieldType::DateTime;
    (value.type() == FieldType::BoardList ? put(someBoards())
     : isDate                             ? put(someDate())
                                          : put(-3))(value);
    return value;
}

/// What writing into the cell does: its text afterwards, "NULL", or what is thrown.
QString written(Field field, const Write& write)
{
    return outcome([&] {
        write(field);
        return field.isNull() ? QString("NULL") : field.toString();
    });
}

/// The cell's bytes and its null byte.
QByteArray bytesOf(const FieldValue& value)
{
    const auto width = int(value.columnDef()->size + 7) / 8 * 8;
    return QByteArray(reinterpret_cast<const char*>(value.data()), width + 1);
}

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

/// Short texts over few characters, so that equal beginnings are common; no U+0000.
QString randomText(QRandomGenerator& random, int maxSize)
{
    const QChar alphabet[] = {'a', 'b', QChar(0x100), QChar(0xd83d), QChar(0xffff), QChar(0x8000)};
    QString text;
    for (int size = random.bounded(maxSize + 1); size > 0; --size)
        text.append(alphabet[random.bounded(6)]);
    return text;
}

} // namespace

class TestField : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writes()
    {
        // For each column what the cell then prints, or what is thrown, by a letter.
        const char* nulls = "NULL|NULL|NULL|NULL|NULL|NULL|NULL|NULL";
        const QString dated = "<2017-03-01 10:00:00>";
        const std::tuple<Write, QString, QString> rows[] = {
            {put(-7), "Integer", "-7|-7|-7|-7.00|-7|A|-7.000|A"},
            {put(4294967295U), "Integer64",
             "2147483647|4294967295|4294967295|4294967295.00|4294967295|A|4294967295.000|A"},
            {put(-5000000000LL), "Integer64",
             "-2147483648|-5000000000|-5e+09|-5000000000.00|-5000000000|A|-5000000000.000|A"},
            {put(-2.7), "Double", "-2|-2|-2.7|-2.70|-2.700000|F|-2.700|A"},
            {put(decimal(-12345, 3)), "Decimal", "-12|-12|-12.345|-12.345|-12.345|T|-12.345|A"},
            {put(xdecimal("-2.340")), "Decimal", "-2|-2|-2.34|-2.340|-2.340|T|-2.340|A"},
            {put(someDate()), "DateTime", "A|A|A|A|2017.03.01 1|2017.03.01 10:00:00.250|A|A"},
            {put(datetime()), "DateTime", "A|A|A|A|NULL||A|A"},
            {put(someBoards()), "BoardList", "A|A|A|A|A|A|A|[BoardList]"},
            {put("-1.5"), "-1.5", "B|B|-1.5|-1.5|-1.5||-1.5|V"},
            {put(dated.midRef(1, 19)), "2017-03-01 10:00:00",
             "B|B|B|D|2017-03-01 1|2017.03.01 10:00:00.000|X|V"},
            {put(QString("12x%2")), "12x%2", "B|B|B|D|12x%2||X|V"},
            {put(QString("")), "", nulls},
            {put(QStringRef()), "", nulls},
            {put(static_cast<const char*>(nullptr)), "", nulls},
            {put(Field()), "", nulls},
        };
        for (const auto& [write, source, expected] : rows) {
            for (int column = 0; column < columnCount; ++column) {
                const QString type = FieldType::typeName(columns[column].type);
                const QMap<QString, QString> thrown = {
                    {"A", "E:Can't convert from " + source + " to " + type},
                    {"B", "E:Can't convert from '" + source + "'' to " + type},
                    {"V", "E:Can't convert from VarChar to " + type},
                    {"F", "E:Can't convert double to datetime."},
                    {"T", "E:Can't convert from decimal to datetime."},
                    {"D", "Q:Невозможно создать decimal по строке '" + source + "'"},
                    {"X", "Q:Невозможно создать xdecimal по строке '" + source + "'"}};
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
    }

    // A cell written from another one holds what the other's value would have written.
    void writesBetweenFields()
    {
        using T = FieldType;
        const QString words[] = {"17", "2.5", "2017.03.01 10:00:00.250", "much too long for it"};
        QVector<std::tuple<T::Type, int, Write>> rows = {
            {T::Integer, 0, put(-7)},
            {T::Integer64, 0, put(5000000000LL)},
            {T::Double, 0, put(2.75)},
            {T::DateTime, 0, put(someDate())},
            {T::BoardList, 0, put(someBoards())},
            {T::Decimal, 2, put(decimal(275, 3))},
            {T::XDecimal, 4, put(xdecimal("2.75"))},
        };
        for (const QString& text : words)
            for (const int length : {12, 23})
                rows.append({T::VarChar, length, put(text.left(length))});
        for (const auto& [type, length, write] : qAsConst(rows)) {
            FieldValue source(type, length, true);
            write(source);
            for (int column = 0; column < columnCount; ++column) {
                FieldValue direct = sample(column);
                FieldValue copied = sample(column);
                const QString wanted = written(direct, write);
                QCOMPARE(written(copied, put(Field(source))), wanted);
                QCOMPARE(bytesOf(copied), bytesOf(direct));
            }
        }
        // A text that is there but empty, as in a new row's column that is not nullable.
        FieldValue empty(FieldType::VarChar, 3, true);
        empty = "abc";
        std::memset(empty.data(), 0, 6);
        const Field copy = empty;
        QCOMPARE(written(FieldValue(FieldType::VarChar, 3, false), put(copy)), QString());
        QCOMPARE(written(FieldValue(FieldType::VarChar, 2, false), put(copy)), QString("NULL"));
    }

    void writesAtTheLimits()
    {
        const auto i32 = FieldType::Integer;
        const auto i64 = FieldType::Integer64;
        const auto dec = FieldType::Decimal;
        const auto xdec = FieldType::XDecimal;
        const std::tuple<FieldType::Type, int, Write, QString> rows[] = {
            {dec, 4, put(5), "5.0000"},
            {dec, -1, put(15), "20"},
            {dec, 20, put(5), "5.0000000000000000"}, // stops where the mantissa is full
            {dec, 4, put(2.0 / 3), "0.6667"},
            {dec, 8, put(2.0 / 3), "0.66666700"},
            {dec, 2, put(1e21), "Q:decimal:overflow"},
            {dec, 0, put(18446744073709551615ULL), "18446744073709551000"},
            {dec, 1, put(xdecimal("12345678901234567890.12")), "12345678901234568000"},
            {xdec, 25, put(5), "5.0000000000000000000000000"},
            {xdec, 65536, put(5), "C:xdecimal:bad operand"},
            {xdec, 2, put(1e21), "C:xdecimal:overflow"},
            {xdec, 1, put(18446744073709551615ULL), "18446744073709551615.0"},
            {i64, 0, put(18446744073709551615ULL), "9223372036854775807"},
            {i32, 0, put(quietNan), "0"},
            {i32, 0, put(2147483647.5), "2147483647"},
            {i32, 0, put(-2147483649.0), "-2147483648"},
            {i64, 0, put(9223372036854775808.0), "9223372036854775807"},
            {i64, 0, put(-infinity), "-9223372036854775808"},
        };
        for (const auto& [type, length, write, expected] : rows) {
            FieldValue value(type, length, true);
            QCOMPARE(written(value, write), expected);
            QCOMPARE(value.isNull(), expected.contains(':'));
        }
        FieldValue wide(i64, 0, true);
        wide = -5000000000LL;
        QCOMPARE(wide.toInteger(), std::numeric_limits<qint32>::min());
    }

    void reads()
    {
        const auto orNull = [](const QString& text) { return text.isNull() ? "null" : text; };
        const QString three = QLocale::system().toString(-3);
        const QString dec = decimal(-300, 2).toSystemString();
        const QString xdec = xdecimal("-3.000").toSystemString();
        const QString x = "E:Incorrect type conversion.";
        const QString t = "Q:Incorrect type of field.";
        const QString wide = "Q:String length is not 1 for QChar: 12.";
        const QString date = someDate().toString();
        const QString local = someDate().toSystemString();
        using F = const Field;
        const struct
        {
            QStringList expected; // for each column, then for NULL
            std::function<QString(F&)> read;
        } rows[] = {
            {{"-3", "-3", x, x, x, x, x, x, "0"},
             [](F& f) { return QString::number(f.toInteger()); }},
            {{"-3", "-3", x, x, x, x, x, x, "0"},
             [](F& f) { return QString::number(f.toInteger64()); }},
            {{"-3", "-3", "-3", "-3", x, x, "-3", x, "0"},
             [](F& f) { return QString::number(f.toDouble()); }},
            {{x, x, x, "-3.00", x, x, x, x, "0"}, [](F& f) { return f.toDecimal().toString(); }},
            {{x, x, x, "-3.00", x, x, "-3.000", x, "0"},
             [](F& f) { return f.toXDecimal().toString(); }},
            {{x, x, x, x, "", date, x, x, ""}, [](F& f) { return f.toDatetime().toString(); }},
            {{x, x, x, x, x, x, x, "10:2 9:1", ""},
             [](F& f) { return f.toBoardList().toString(); }},
            {{"-3", "-3", "-3", "-3.00", "-3", date, "-3.000", "[BoardList]", "null"},
             [=](F& f) { return orNull(f.toString()); }},
            {{three, three, three, dec, "-3", local, xdec, "10:2 9:1", "null"},
             [=](F& f) { return orNull(f.toSystemString()); }},
            {{t, t, t, t, "-3", t, t, t, ""}, [](F& f) { return QString(f.asStaticString()); }},
            {{t, t, t, t, wide, t, t, t, QChar()}, [](F& f) { return QString(f.toChar()); }},
            {{t, t, t, t, wide, t, t, t, "Q:String is null for QChar"},
             [](F& f) { return QString(f.asChar()); }},
            {{"int -3", "qlonglong -3", "double -3", "decimal -3.00", "QString -3",
              "QDateTime 2017-03-01T10:00:00.250Z", "xdecimal -3.000", "QString 10:2 9:1", " "},
             [](F& f) { return f.toVariant().typeName() + (' ' + f.toVariant().toString()); }},
        };
        for (const auto& row : rows) {
            for (int column = 0; column < columnCount; ++column) {
                FieldValue value = sample(column);
                QCOMPARE(outcome([&] { return row.read(value); }), row.expected.at(column));
                value.setNull(); // looked at before the type
                QCOMPARE(outcome([&] { return row.read(value); }), row.expected.last());
            }
        }
        QVERIFY(FieldConstValue("x").toChar() == 'x' && FieldConstValue("x").asChar() == 'x');
    }

    void cellsWithoutType()
    {
        Field field;
        QVERIFY(field.isNull() && field.compare(Field()) == 0);
        QCOMPARE(written(field, put(5)), QString("E:Can't convert from Integer to Undefined"));
        QCOMPARE(written(field, put("x")), QString("E:Can't convert from VarChar to Undefined"));
        QCOMPARE(written(field, put(Field())), QString("NULL"));
        TableColumnDef def;
        unsigned char nullByte = 1;
        const Field other(&def, nullptr, &nullByte, 1);
        QVERIFY(other.toString().isNull() && !other.toVariant().isValid());
        def.type = static_cast<FieldType::Type>(9);
        QCOMPARE(other.typeName(), "undefined");
        QCOMPARE(outcome([&] { return other.toString(); }), QString("Q:Incorrect type of field."));
        QString text;
        QDebug(&text) << FieldConstValue(5) << FieldConstValue() << FieldConstValue("a\"b") << 1;
        QCOMPARE(text, QString("\"5\" NULL \"a\\\"b\" 1 "));
    }

    void nullFlagIsItsOwnBit()
    {
        FieldValue value(FieldType::Integer, 0, true);
        for (unsigned char bit = 0; bit < 8; ++bit) {
            unsigned char nullByte = 0xA5;
            Field field(value.columnDef(), value.data(), &nullByte, quint8(1 << bit));
            QCOMPARE(field.isNull(), (0xA5 >> bit & 1) == 0);
            field = int(bit);
            QCOMPARE(int(nullByte), 0xA5 | 1 << bit);
            field.setNull();
            QCOMPARE(int(nullByte), 0xA5 & ~(1 << bit));
            QCOMPARE(value.data()[0], bit); // the bytes stay
        }
    }

    void textsGoThroughCells()
    {
        QRandomGenerator random(1);
        for (int i = 0; i < 300; ++i) {
            const int length = random.bounded(0, 14);
            const QString text = randomText(random, 19);
            QByteArray memory(64, char(0x5a));
            unsigned char* const cell = reinterpret_cast<unsigned char*>(memory.data()) + 8;
            if (i % 2)
                FieldType::setString(cell, length, ("x" + text + "y").midRef(1, text.size()));
            else
                FieldType::setString(cell, length, text);
            QByteArray expected(64, char(0x5a)); // nothing around the cell, zeros behind the text
            const QString kept = text.left(length).leftJustified(length, QChar(0));
            expected.replace(8, 2 * length, reinterpret_cast<const char*>(kept.utf16()),
                             2 * length);
            QCOMPARE(memory, expected);
            StaticString shared(FieldType::getStaticString(cell, length));
            const QString outlives = FieldType::getStaticString(cell, length); // from a temporary
            memory.fill(0);
            QCOMPARE(outlives, text.left(length));
            QVERIFY(outlives.isEmpty() || shared.view().data()->isNull()); // it shows the cell
        }
    }

    void anyBytesOfAnXDecimalAreRead()
    {
        // Zero bytes with the value bit set: a column added to rows that were there before.
        FieldValue value(FieldType::XDecimal, 2, false);
        value.data()[16] = 1;
        QCOMPARE(value.toString(), QString("0"));
        std::memset(value.data(), 0xff, 16);
        QCOMPARE(written(FieldValue(FieldType::Integer, 0, false), put(Field(value))), "0");
        QVERIFY(value.toString() == "NaN" && value.compare(value) == 0);
    }

    void comparesAcrossTypes()
    {
        using C = FieldConstValue;
        const C dec(decimal(150, 2));
        const std::tuple<C, C, int> rows[] = {
            {C(), C(), 0},
            {C(), C(quietNan), -1},
            {C(9007199254740993LL), C(9007199254740992LL), 1},
            {C(9007199254740993LL), C(decimal(9007199254740992LL)), 1},
            {dec, C(xdecimal("1.500")), 0},
            {dec, C(xdecimal("1.50000000000000000000001")), -1},
            {C(0.1), C(decimal(10, 2)), 0},
            {C(quietNan), C(-5), -1},
            {C(quietNan), C(-quietNan), 0},
            {C("10"), C(10), 0},
            {C("9"), C(10), 1}, // as texts
            {C("2017.03.01 10:00:00.250"), C(someDate()), 0},
            {C("abcdef"), C("abcdefgh"), -1},
        };
        for (const auto& [a, b, expected] : rows) {
            QCOMPARE(a.compare(b), expected);
            QCOMPARE(b.compare(a), -expected);
        }
    }

    void orderIsTotal()
    {
        for (const quint32 seed : testSeeds(4)) {
            const SeedScope scope(seed);
            QRandomGenerator random(seed);
            for (int column = 0; column < columnCount; ++column) {
                QVector<FieldValue> pool(40, sample(column));
                for (int i = 0; i < pool.size(); ++i) {
                    for (qint64 k = i % 2 ? pool[i].columnDef()->size : 0; k-- > 0;)
                        pool[i].data()[k] = uchar(random.bounded(random.bounded(3) ? 2 : 256));
                    if (i % 8 == 0)
                        pool[i].setNull();
                    else if (i % 4 == 0 && columns[column].type != FieldType::BoardList)
                        pool[i].fromText(QString::number(random.bounded(-3, 4)));
                }
                QVERIFY2(isOrdered(pool), FieldType::typeName(columns[column].type));
            }
            QVector<FieldValue> pool = {FieldConstValue(), FieldConstValue(quietNan)};
            // Numbers of few digits: equal ones of different types are common, and doubles tell all
            // of them apart.
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

    void textsCompareAsQStrings()
    {
        QRandomGenerator random(1);
        for (int i = 0; i < 9000; ++i) {
            QString texts[2] = {randomText(random, 11), randomText(random, 11)};
            if (i % 3)
                texts[1] = texts[0].left(random.bounded(12)) + texts[1].left(i % 3 - 1);
            TableColumnDef defs[2];
            unsigned char memory[2][48] = {};
            unsigned char* cells[2];
            for (int side = 0; side < 2; ++side) {
                const int size = texts[side].size();
                const int length = random.bounded(4) ? 12 : random.bounded(qMax(1, size), 16);
                cells[side] = memory[side] + random.bounded(8); // at any address
                FieldType::setString(cells[side], length, texts[side]);
                if (size + 1 < length && random.bounded(2)) // rubbish behind a terminator
                    std::memset(cells[side] + 2 * size + 2, 7, size_t(2 * (length - size - 1)));
                defs[side].type = FieldType::VarChar;
                defs[side].length = length;
            }
            unsigned char nullByte = 1;
            const Field a(&defs[0], cells[0], &nullByte, 1);
            const Field b(&defs[1], cells[1], &nullByte, 1);
            const int expected = qBound(-1, QString::compare(texts[0], texts[1]), 1);
            QCOMPARE(a.compare(b), expected);
            QCOMPARE(b.compare(a), -expected);
        }
    }

    void valuesOwnTheirCell()
    {
        Table table("t");
        table.addColumn("id", FieldType::Integer, 0, false);
        table.addColumn("note", FieldType::VarChar, 40);
        FieldValue note(&table, "note");
        FieldValue copy(&table, 1);
        for (const FieldValue& value : {note, copy, FieldValue(table.columnDef(1))}) {
            const TableColumnDef& def = *value.columnDef();
            QVERIFY(def.name == "note" && !def.table && def.offset == 0 && def.index == 0);
            QCOMPARE(bytesOf(value), QByteArray(81, '\0')); // the null byte behind the cell
        }
        note = "long enough to lie on the heap";
        FieldValue assigned(FieldType::Integer, 0, true);
        assigned = note;
        const FieldValue fromView{static_cast<const Field&>(note)};
        const QByteArray bytes = bytesOf(note);
        note = "changed";
        QVERIFY(bytesOf(assigned) == bytes && bytesOf(fromView) == bytes);
        assigned.fromText(QString("<9>").midRef(1, 1));
        assigned = static_cast<const FieldValue&>(assigned);
        QCOMPARE(assigned.toText(), QString("9"));

        copy = FieldConstValue(7LL);                      // takes type and value
        static_cast<Field&>(copy) = FieldConstValue("8"); // takes the value only
        const TableColumnDef undefined;
        QVERIFY_EXCEPTION_THROWN(copy.init(&undefined), QString);
        QCOMPARE(FieldValue(copy).toInteger64(), 8);
        copy.init(copy.columnDef()); // its own definition
        QVERIFY(copy.isNull() && copy.type() == FieldType::Integer64);
        QCOMPARE(outcome([&] { FieldValue(&table, "a"); }), QString("Q:Column 'a' not found."));
        QCOMPARE(outcome([&] { FieldValue(&table, -1); }), QString("Q:Column '-1' not found."));
    }

    void constants()
    {
        const std::tuple<QString, FieldConstValue, QString> rows[] = {
            {"VarChar[1]", QChar(0x42f), "Я"},       {"VarChar[1]", QChar(), ""},
            {"VarChar[2]", "a\xe9", "aé"},           {"Integer64", 5000000000LL, "5000000000"},
            {"Decimal[0]", decimal(150, 2), "1.50"},
        };
        for (const auto& [type, constant, text] : rows) {
            FieldConstValue assigned;
            assigned = constant;
            for (const auto& value : {assigned, FieldConstValue::fromValue(constant)}) {
                const TableColumnDef& def = *value.columnDef();
                QCOMPARE(FieldType::typeNameWithLength(def.type, def.length), type);
                QCOMPARE(value.toText(), text);
                QVERIFY(!value.isNull() && !def.nullable && value.compare(constant) == 0);
            }
        }
        const QString noLength = "Q:Length of string can't be zero";
        QCOMPARE(outcome([] { return FieldConstValue("").toText(); }), noLength);
        FieldValue cell(FieldType::VarChar, 12, false);
        cell = "abc";
        QCOMPARE(FieldConstValue::fromValue(cell).columnDef()->length, 3);
        std::memset(cell.data(), 0, 24); // there, but empty
        QCOMPARE(outcome([&] { return FieldConstValue::fromValue(cell).toText(); }), noLength);
        cell.setNull();
        FieldValue boards(FieldType::BoardList, 0, true);
        static_cast<Field&>(boards) = boardlist();
        for (const Field& none : {Field(), Field(boards), Field(cell)}) {
            const FieldConstValue constant = FieldConstValue::fromValue(none);
            QVERIFY(constant.isNull() && constant.type() == FieldType::Integer);
        }
    }
};

QTEST_APPLESS_MAIN(TestField)

#include "tst_field.moc"
