// SPDX-License-Identifier: MIT
#include "support/seed.h"
#include "table/cell_p.h"
#include "table/tablecolumndef.h"

#include <QDataStream>
#include <QRandomGenerator>
#include <QtTest>

namespace {

/// Short texts over few characters, so that equal beginnings are common; no U+0000.
QString randomText(QRandomGenerator& random, int maxSize)
{
    const QChar alphabet[] = {'a', 'b', QChar(0x100), QChar(0xd83d), QChar(0xffff), QChar(0x8000)};
    QString text;
    for (int size = random.bounded(maxSize + 1); size > 0; --size)
        text.append(alphabet[random.bounded(6)]);
    return text;
}

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

} // namespace

class TestColumns : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void types_data();
    void types();
    void textsGoThroughCells();
    void textsCompareAsQStrings();
    void staticStringSharesTheCell();
    void definitionCopiesWithoutPlace();
    void definitionStreams();
};

void TestColumns::types_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<QString>("width"); // or the text thrown
    QTest::addColumn<QString>("name");
    const auto row = [](int type, int length, const QString& width, const QString& name) {
        QTest::addRow("%d, %d", type, length) << type << length << width << name;
    };
    row(0, 1, "Type is undefined.", "Undefined");
    row(1, 5, "4", "Integer");
    row(2, 0, "8", "Integer64");
    row(3, 0, "8", "Double");
    row(4, 4, "8", "Decimal[4]");
    row(5, 2000000000, "4000000000", "VarChar[2000000000]");
    row(5, 0, "Length of string can't be zero", "VarChar[0]");
    row(5, -1, "Length of string can't be zero", "VarChar[-1]");
    row(6, 0, "8", "DateTime");
    row(7, 0, "404", "BoardList");
    row(8, 2, "16", "XDecimal[2]");
    row(9, 4, "Type is undefined.", "Undefined");
    row(-1, 4, "Type is undefined.", "Undefined");
}

void TestColumns::types()
{
    QFETCH(int, length);
    QFETCH(QString, name);
    QFETCH(int, type);
    const auto fieldType = static_cast<FieldType::Type>(type);
    QString width;
    try {
        width = QString::number(FieldType::typeLength(fieldType, length));
    } catch (const QString& text) {
        width = text;
    }
    QTEST(width, "width");
    QCOMPARE(FieldType::typeNameWithLength(fieldType, length), name);
    QCOMPARE(QString(FieldType::typeName(fieldType)), name.section('[', 0, 0));
    QCOMPARE(FieldType::typeHasLength(fieldType), name.contains('['));
}

void TestColumns::textsGoThroughCells()
{
    for (const quint32 seed : testSeeds(50)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        const int length = random.bounded(0, 14);
        const QString text = randomText(random, 20);
        QByteArray memory(64, char(0x5a));
        unsigned char* const cell = reinterpret_cast<unsigned char*>(memory.data()) + 8;
        switch (random.bounded(3)) {
        case 0:
            FieldType::setString(cell, length, text);
            break;
        case 1:
            FieldType::setString(cell, length, QString("x" + text + "y").midRef(1, text.size()));
            break;
        default:
            FieldType::setString(cell, length, text.utf16(), text.size());
        }
        QByteArray expected(64, char(0x5a)); // nothing around the cell, zeros behind the text
        const QString padded = text.left(length).leftJustified(length, QChar(0));
        expected.replace(8, 2 * length, reinterpret_cast<const char*>(padded.utf16()), 2 * length);
        QCOMPARE(memory, expected);
        for (int end = -1; end <= length; ++end) {
            const QString kept = text.left(qMax(end, 0));
            QCOMPARE(FieldType::getString(cell, end), kept);
            QCOMPARE(QString(FieldType::getStaticString(cell, end)), kept);
        }
    }
}

void TestColumns::textsCompareAsQStrings()
{
    for (const quint32 seed : testSeeds(3)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        for (int i = 0; i < 3000; ++i) {
            const int lengthA = random.bounded(1, 12);
            const int lengthB = random.bounded(4) ? lengthA : random.bounded(1, 12);
            const QString a = randomText(random, lengthA);
            const QString b = random.bounded(3) ? randomText(random, lengthB) : a.left(lengthB);
            unsigned char memory[2][32] = {};
            unsigned char* const cellA = memory[0] + random.bounded(8); // at any address
            unsigned char* const cellB = memory[1] + random.bounded(8);
            FieldType::setString(cellA, lengthA, a);
            FieldType::setString(cellB, lengthB, b);
            if (b.size() < lengthB && random.bounded(2)) // rubbish behind a terminator
                std::memset(cellB + 2 * b.size() + 2, 7, size_t(2 * (lengthB - b.size() - 1)));
            const int expected = qBound(-1, QString::compare(a, b), 1);
            QCOMPARE(LiveTable::compareText(cellA, lengthA, cellB, lengthB), expected);
            QCOMPARE(LiveTable::compareText(cellB, lengthB, cellA, lengthA), -expected);
        }
    }
}

void TestColumns::staticStringSharesTheCell()
{
    alignas(8) unsigned char cell[8];
    FieldType::setString(cell, 4, QString("abcd"));
    const StaticString text = FieldType::getStaticString(cell, 4);
    const StaticString copy = text;
    StaticString assigned;
    QVERIFY(QString(assigned).isEmpty() && !QString(assigned).isNull());
    assigned = copy;
    for (const StaticString* each : {&text, &copy, static_cast<const StaticString*>(&assigned)}) {
        const QString shared = *each;
        QCOMPARE(static_cast<const void*>(shared.constData()), static_cast<const void*>(cell));
        QCOMPARE(shared, QString("abcd"));
        QVERIFY(each->view() == shared);
    }
    QString changed = text;
    changed.append("efgh")[0] = 'x';
    QCOMPARE(changed, QString("xbcdefgh"));

    const QString outlives = FieldType::getStaticString(cell, 4); // from a temporary
    QCOMPARE(FieldType::getString(cell, 4), QString("abcd"));
    FieldType::setString(cell, 4, QString("1234"));
    QCOMPARE(outlives, QString("abcd"));
}

void TestColumns::definitionCopiesWithoutPlace()
{
    Table* const owner = reinterpret_cast<Table*>(quintptr(8));
    const TableColumnDef fresh(owner);
    QVERIFY(fresh.nullable && fresh.flag && fresh.table == owner);
    QCOMPARE(fresh.fieldDef(), FieldDef(FieldType::Undefined, 0));

    const TableColumnDef source = sampleDef();
    const TableColumnDef moved(owner, source);
    QCOMPARE(moved.name + moved.title + moved.description, source.name + source.title);
    QCOMPARE(moved.fieldDef(), FieldDef(FieldType::VarChar, 3));
    QVERIFY(moved.size == 6 && !moved.nullable && moved.flag && moved.table == owner);
    QVERIFY(moved.offset == 0 && moved.index == 0 && moved.nullByte == 0 && moved.nullMask == 0);
    const TableColumnDef exact = source;
    QVERIFY(exact.offset == 24 && exact.index == 3 && exact.nullByte == 24 && exact.nullMask == 3);
}

void TestColumns::definitionStreams()
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
        const QByteArray part = bytes.left(size);
        QDataStream in(part);
        TableColumnDef def;
        def.index = 7;
        def.read(in);
        QCOMPARE(in.status() == QDataStream::Ok, whole);
        QCOMPARE(def.flag, whole);
        QCOMPARE(def.index, 7);
        if (whole) {
            QCOMPARE(def.name + def.title, sampleDef().name + sampleDef().title);
            QCOMPARE(def.fieldDef(), sampleDef().fieldDef());
            QVERIFY(def.size == 6 && !def.nullable && def.description.isNull());
        }
    }
}

QTEST_APPLESS_MAIN(TestColumns)

#include "tst_columns.moc"
