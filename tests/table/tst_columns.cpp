// SPDX-License-Identifier: MIT
#include "support/outcome.h"
#include "support/seed.h"
#include "table/table.h"

#include <QDataStream>
#include <QRandomGenerator>
#include <QtTest>

#include <cstring>

namespace {

TableColumnDef sampleDef()
{
    TableColumnDef def;
    def.type = FieldType::VarChar;
    def.length = 3;
    def.name = "price";
    def.nullable = false;
    def.title = QStringLiteral("Цена");
    def.offset = def.nullByte = 24;
    def.size = 6;
    def.index = def.nullMask = 3;
    return def;
}

QByteArray bytesOf(const FieldValue& value, int size)
{
    return QByteArray(reinterpret_cast<const char*>(value.data()), size);
}

} // namespace

class TestColumns : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void types()
    {
        const struct
        {
            int type;
            int length;
            QString width; // or the text thrown
            QString name;
        } rows[] = {
            {0, 1, "Q:Type is undefined.", "Undefined"},
            {1, 5, "4", "Integer"},
            {4, 4, "8", "Decimal[4]"},
            {5, 2000000000, "4000000000", "VarChar[2000000000]"},
            {5, 0, "Q:Length of string can't be zero", "VarChar[0]"},
            {5, -1, "Q:Length of string can't be zero", "VarChar[-1]"},
            {7, 0, "404", "BoardList"},
            {8, 2, "16", "XDecimal[2]"},
            {-1, 4, "Q:Type is undefined.", "Undefined"},
        };
        for (const auto& row : rows) {
            const auto type = static_cast<FieldType::Type>(row.type);
            const auto width = [&] {
                return QString::number(FieldType::typeLength(type, row.length));
            };
            QCOMPARE(row.name + ": " + outcome(width), row.name + ": " + row.width);
            QCOMPARE(FieldType::typeNameWithLength(type, row.length), row.name);
            QCOMPARE(QString(FieldType::typeName(type)), row.name.section('[', 0, 0));
            QCOMPARE(FieldType::typeHasLength(type), row.name.contains('['));
        }
    }

    void textsGoThroughCells()
    {
        const quint32 seed = testSeeds(1).first();
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        for (int i = 0; i < 300; ++i) {
            const int length = random.bounded(0, 14);
            QString text(random.bounded(20), QChar(0xd83d));
            for (QChar& c : text)
                c = QChar(1 + random.bounded(0xffff));
            QByteArray memory(64, char(0x5a));
            unsigned char* const cell = reinterpret_cast<unsigned char*>(memory.data()) + 8;
            if (i % 3 == 0)
                FieldType::setString(cell, length, text);
            else if (i % 3 == 1)
                FieldType::setString(cell, length, ("x" + text + "y").midRef(1, text.size()));
            else
                FieldType::setString(cell, length, text.utf16(), text.size());
            QByteArray expected(64, char(0x5a)); // nothing around the cell, zeros behind the text
            const QString kept = text.left(length).leftJustified(length, QChar(0));
            expected.replace(8, 2 * length, reinterpret_cast<const char*>(kept.utf16()),
                             2 * length);
            QCOMPARE(memory, expected);
            for (int end = -1; end <= length; ++end) {
                QCOMPARE(FieldType::getString(cell, end), text.left(qMax(end, 0)));
                QCOMPARE(QString(FieldType::getStaticString(cell, end)), text.left(qMax(end, 0)));
            }
        }
    }

    void staticStringSharesTheCell()
    {
        alignas(8) unsigned char cell[8];
        FieldType::setString(cell, 4, QString("abcd"));
        StaticString text;
        text = StaticString(FieldType::getStaticString(cell, 4));
        QCOMPARE(text.view().data(), reinterpret_cast<const QChar*>(cell));
        const QString outlives = FieldType::getStaticString(cell, 4); // from a temporary
        FieldType::setString(cell, 4, QString("1234"));
        QVERIFY(outlives == u"abcd" && QString(text) == u"1234");
    }

    void definitionCopiesWithoutPlace()
    {
        const TableColumnDef moved(nullptr, sampleDef());
        QVERIFY(moved.name == "price" && moved.title == sampleDef().title && moved.size == 6);
        QVERIFY(moved.fieldDef() == sampleDef().fieldDef() && !moved.nullable && moved.flag);
        QVERIFY(!moved.offset && !moved.index && !moved.nullByte && !moved.nullMask);
    }

    void definitionStreams()
    {
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        sampleDef().write(out);
        // name, title, no description, length, type, size, nullable, flag
        QCOMPARE(bytes.toHex(), QByteArray("0000000a00700072006900630065"
                                           "0000000804260435043d0430"
                                           "ffffffff0000000305000000060001"));
        for (int size = 0; size <= bytes.size(); ++size) {
            const bool whole = size == bytes.size();
            QDataStream in(bytes.left(size));
            TableColumnDef def;
            def.index = 7;
            def.read(in);
            QVERIFY((in.status() == QDataStream::Ok) == whole && def.flag == whole);
            QCOMPARE(def.index, 7);
            if (whole) {
                QCOMPARE(def.name + def.title, sampleDef().name + sampleDef().title);
                QCOMPARE(def.fieldDef(), sampleDef().fieldDef());
                QVERIFY(def.size == 6 && !def.nullable && def.description.isNull());
            }
        }
    }

    void valuesOwnTheirCell()
    {
        Table table("t", QString(), nullptr);
        table.addColumn("id", FieldType::Integer, 0, false, QString(), true, QString());
        table.addColumn("note", FieldType::VarChar, 40, true, QString(), true, QString());
        FieldValue note(&table, "note");
        FieldValue copy(&table, 1);
        for (const FieldValue& value : {note, copy, FieldValue(table.columnDef(1))}) {
            const TableColumnDef& def = *value.columnDef();
            QVERIFY(def.name == "note" && !def.table && def.offset == 0 && def.index == 0);
            QCOMPARE(bytesOf(value, 81), QByteArray(81, '\0')); // the null byte behind the cell
        }
        note = "long enough to lie on the heap";
        FieldValue assigned(FieldType::Integer, 0, true);
        assigned = note;
        const FieldValue fromView{static_cast<const Field&>(note)};
        const QByteArray bytes = bytesOf(note, 81);
        note = "changed";
        QVERIFY(bytesOf(assigned, 81) == bytes && bytesOf(fromView, 81) == bytes);
        assigned.fromText(QString("<9>").midRef(1, 1));
        assigned = static_cast<const FieldValue&>(assigned);
        QCOMPARE(assigned.toText(), QString("9"));

        copy = FieldConstValue(7LL); // takes type and value
        QCOMPARE(copy.type(), FieldType::Integer64);
        static_cast<Field&>(copy) = FieldConstValue("8"); // takes the value only
        copy = FieldValue(copy);
        QCOMPARE(copy.toInteger64(), 8);
        const TableColumnDef undefined;
        QVERIFY_EXCEPTION_THROWN(copy.init(&undefined), QString);
        QCOMPARE(copy.toInteger64(), 8);
        copy.init(copy.columnDef()); // its own definition
        QVERIFY(copy.isNull() && copy.type() == FieldType::Integer64);
        const auto find = [&](auto column) {
            return outcome([&] { return FieldValue(&table, column).toText(); });
        };
        QCOMPARE(find("a"), QString("Q:Column 'a' not found."));
        QCOMPARE(find(-1), QString("Q:Column '-1' not found."));
        QCOMPARE(outcome([] { return FieldValue(FieldType::Undefined, 0, true).toText(); }),
                 QString("Q:Type is undefined."));
    }

    void constants()
    {
        const struct
        {
            QString type;
            FieldConstValue constant;
            QString text;
        } rows[] = {
            {"VarChar[1]", QChar(0x42f), "Я"},       {"VarChar[1]", QChar(), ""},
            {"VarChar[2]", "a\xe9", "aé"},           {"Integer64", 5000000000LL, "5000000000"},
            {"Decimal[0]", decimal(150, 2), "1.50"},
        };
        for (const auto& row : rows) {
            FieldConstValue assigned;
            assigned = row.constant;
            for (const auto& value : {assigned, FieldConstValue::fromValue(row.constant)}) {
                const TableColumnDef& def = *value.columnDef();
                QCOMPARE(FieldType::typeNameWithLength(def.type, def.length), row.type);
                QCOMPARE(value.toText(), row.text);
                QVERIFY(!value.isNull() && !def.nullable && value.compare(row.constant) == 0);
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

QTEST_APPLESS_MAIN(TestColumns)

#include "tst_columns.moc"
