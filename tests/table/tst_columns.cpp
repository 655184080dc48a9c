// SPDX-License-Identifier: MIT
#include "support/seed.h"
#include "table/cell_p.h"
#include "table/staticstring.h"
#include "table/tablecolumndef.h"

#include <QDataStream>
#include <QRandomGenerator>
#include <QtTest>

namespace {

QString thrownText(FieldType::Type type, int length)
{
    try {
        return QString::number(FieldType::typeLength(type, length));
    } catch (const QString& text) {
        return text;
    }
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

int sign(int n)
{
    return (n > 0) - (n < 0);
}

TableColumnDef sampleDef()
{
    TableColumnDef def;
    def.name = "price";
    def.title = QStringLiteral("Цена");
    def.type = FieldType::VarChar;
    def.length = 3;
    def.size = 6;
    def.nullable = false;
    def.offset = 24;
    def.index = 3;
    def.nullByte = 40;
    def.nullMask = 8;
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
    void textEndsAtZeroUnit();
    void textsCompareAsQStrings();
    void staticStringSharesTheCell();
    void staticStringOutlivesAsCopy();
    void definitionStartsFresh();
    void definitionCopiesWithoutPlace();
    void definitionStreams();
};

void TestColumns::types_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<QString>("width"); // or the text thrown
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("fullName");
    const QString undefined = "Type is undefined.";
    const QString empty = "Length of string can't be zero";
    QTest::newRow("0") << 0 << 1 << undefined << "Undefined"
                       << "Undefined";
    QTest::newRow("1") << 1 << 5 << "4"
                       << "Integer"
                       << "Integer";
    QTest::newRow("2") << 2 << 0 << "8"
                       << "Integer64"
                       << "Integer64";
    QTest::newRow("3") << 3 << 0 << "8"
                       << "Double"
                       << "Double";
    QTest::newRow("4") << 4 << 4 << "8"
                       << "Decimal"
                       << "Decimal[4]";
    QTest::newRow("5") << 5 << 20 << "40"
                       << "VarChar"
                       << "VarChar[20]";
    QTest::newRow("5, long") << 5 << 2000000000 << "4000000000"
                             << "VarChar"
                             << "VarChar[2000000000]";
    QTest::newRow("5, zero") << 5 << 0 << empty << "VarChar"
                             << "VarChar[0]";
    QTest::newRow("5, negative") << 5 << -1 << empty << "VarChar"
                                 << "VarChar[-1]";
    QTest::newRow("6") << 6 << 0 << "8"
                       << "DateTime"
                       << "DateTime";
    QTest::newRow("7") << 7 << 0 << "404"
                       << "BoardList"
                       << "BoardList";
    QTest::newRow("8") << 8 << 2 << "16"
                       << "XDecimal"
                       << "XDecimal[2]";
    QTest::newRow("9") << 9 << 4 << undefined << "Undefined"
                       << "Undefined";
    QTest::newRow("-1") << -1 << 4 << undefined << "Undefined"
                        << "Undefined";
}

void TestColumns::types()
{
    QFETCH(int, type);
    QFETCH(int, length);
    QFETCH(QString, width);
    QFETCH(QString, name);
    QFETCH(QString, fullName);
    const auto fieldType = static_cast<FieldType::Type>(type);
    QCOMPARE(thrownText(fieldType, length), width);
    QCOMPARE(QString(FieldType::typeName(fieldType)), name);
    QCOMPARE(FieldType::typeNameWithLength(fieldType, length), fullName);
    QCOMPARE(FieldType::typeHasLength(fieldType), fullName.contains('['));
}

void TestColumns::textsGoThroughCells()
{
    for (const quint32 seed : testSeeds(20)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        const int length = random.bounded(1, 14);
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
        QCOMPARE(FieldType::getString(cell, length), text.left(length));
        QCOMPARE(QString(FieldType::getStaticString(cell, length)), text.left(length));

        QByteArray expected(64, char(0x5a)); // nothing around the cell, zeros behind the text
        const QString padded = text.left(length).leftJustified(length, QChar(0));
        expected.replace(8, 2 * length, reinterpret_cast<const char*>(padded.utf16()), 2 * length);
        QCOMPARE(memory, expected);
    }
    unsigned char cell[2] = {1, 2};
    FieldType::setString(cell, 0, QString("a"));
    FieldType::setString(cell, -3, QString("a"));
    QVERIFY(cell[0] == 1 && cell[1] == 2);
    FieldType::setString(cell, 1, nullptr, -1);
    QVERIFY(cell[0] == 0 && cell[1] == 0);
}

void TestColumns::textEndsAtZeroUnit()
{
    // The text's end in each of the places of a block of four units, with rubbish behind it.
    for (int size = 0; size <= 9; ++size) {
        QString units(9, QChar(0x8001)); // units that trip a test for zeros that is too simple
        if (size < 9)
            units[size] = QChar(0);
        unsigned char cell[18];
        FieldType::setString(cell, 9, units);
        QCOMPARE(FieldType::getString(cell, 9).size(), size);
        QCOMPARE(FieldType::getString(cell, 4).size(), qMin(size, 4));
        QCOMPARE(FieldType::getStaticString(cell, 9).size(), size);
        QCOMPARE(FieldType::getString(cell, 0), QString());
        QCOMPARE(FieldType::getString(cell, -1), QString());
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
            unsigned char memory[2][32];
            std::memset(memory, 0xff, sizeof memory);
            unsigned char* const cellA = memory[0] + random.bounded(8); // at any address
            unsigned char* const cellB = memory[1] + random.bounded(8);
            FieldType::setString(cellA, lengthA, a);
            FieldType::setString(cellB, lengthB, b);
            if (b.size() < lengthB && random.bounded(2)) // rubbish behind a terminator
                std::memset(cellB + 2 * b.size() + 2, 7, size_t(2 * (lengthB - b.size() - 1)));
            const int expected = sign(QString::compare(a, b));
            QCOMPARE(LiveTable::compareText(cellA, lengthA, cellB, lengthB), expected);
            QCOMPARE(LiveTable::compareText(cellB, lengthB, cellA, lengthA), -expected);
        }
    }
}

void TestColumns::staticStringSharesTheCell()
{
    alignas(8) unsigned char cell[8];
    FieldType::setString(cell, 4, QString("abc"));
    const StaticString text = FieldType::getStaticString(cell, 4);
    const StaticString copy = text;
    StaticString assigned;
    QVERIFY(assigned.isEmpty());
    QCOMPARE(QString(assigned), QString(""));
    assigned = copy;
    const QString shared = text;
    const QString sharedCopy = copy;
    const QString sharedAssigned = assigned;
    for (const QString& string : {shared, sharedCopy, sharedAssigned}) {
        QCOMPARE(static_cast<const void*>(string.constData()), static_cast<const void*>(cell));
        QCOMPARE(string, QString("abc"));
    }
    QCOMPARE(text.view(), QStringView(shared));
    QVERIFY(text.view().data() == shared.constData());

    QString changed = text;
    changed[0] = 'x';
    changed.append("defgh");
    QCOMPARE(changed, QString("xbcdefgh"));
    QCOMPARE(FieldType::getString(cell, 4), QString("abc"));
}

void TestColumns::staticStringOutlivesAsCopy()
{
    alignas(8) unsigned char cell[8];
    FieldType::setString(cell, 4, QString("abcd"));
    const QString copied = FieldType::getStaticString(cell, 4); // from a temporary
    FieldType::setString(cell, 4, QString("1234"));
    QCOMPARE(copied, QString("abcd"));
    QCOMPARE(*copied.utf16(), ushort('a'));

    FieldType::setString(cell, 4, QString());
    const QString empty = FieldType::getStaticString(cell, 4);
    QVERIFY(empty.isEmpty() && !empty.isNull());
}

void TestColumns::definitionStartsFresh()
{
    Table* const owner = reinterpret_cast<Table*>(quintptr(8));
    const TableColumnDef def(owner);
    QCOMPARE(def.type, FieldType::Undefined);
    QCOMPARE(def.length, 0);
    QVERIFY(def.name.isEmpty() && def.title.isEmpty() && def.description.isEmpty());
    QVERIFY(def.nullable && def.flag);
    QCOMPARE(def.table, owner);
    QVERIFY(def.offset == 0 && def.size == 0 && def.index == 0);
    QVERIFY(def.nullByte == 0 && def.nullMask == 0);
}

void TestColumns::definitionCopiesWithoutPlace()
{
    Table* const owner = reinterpret_cast<Table*>(quintptr(8));
    const TableColumnDef source = sampleDef();
    const TableColumnDef moved(owner, source);
    QCOMPARE(moved.name, source.name);
    QCOMPARE(moved.title, source.title);
    QCOMPARE(moved.description, source.description);
    QCOMPARE(moved.fieldDef(), FieldDef(FieldType::VarChar, 3));
    QCOMPARE(moved.size, qint64(6));
    QCOMPARE(moved.nullable, false);
    QCOMPARE(moved.flag, true);
    QCOMPARE(moved.table, owner);
    QVERIFY(moved.offset == 0 && moved.index == 0 && moved.nullByte == 0 && moved.nullMask == 0);

    const TableColumnDef exact = source;
    QVERIFY(exact.offset == 24 && exact.index == 3 && exact.nullByte == 40 && exact.nullMask == 8);
    QVERIFY(!exact.table);
    QVERIFY(FieldDef(FieldType::VarChar, 3) != FieldDef(FieldType::VarChar, 4));
    QVERIFY(FieldDef() == FieldDef(FieldType::Undefined, 0));
}

void TestColumns::definitionStreams()
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    sampleDef().write(out);
    QCOMPARE(bytes.toHex(), QByteArray("0000000a00700072006900630065" // name
                                       "0000000804260435043d0430"     // title
                                       "ffffffff"                     // description: null
                                       "00000003"                     // length
                                       "05"                           // type
                                       "00000006"                     // size
                                       "00"
                                       "01")); // nullable, flag
    for (int size = 0; size <= bytes.size(); ++size) {
        const QByteArray part = bytes.left(size);
        QDataStream in(part);
        TableColumnDef def;
        def.index = 7;
        def.read(in);
        QCOMPARE(in.status() == QDataStream::Ok, size == bytes.size());
        QCOMPARE(def.index, 7);
        QCOMPARE(def.flag, size == bytes.size());
        if (size < bytes.size())
            continue;
        QCOMPARE(def.name, sampleDef().name);
        QCOMPARE(def.title, sampleDef().title);
        QVERIFY(def.description.isNull());
        QCOMPARE(def.fieldDef(), sampleDef().fieldDef());
        QCOMPARE(def.size, qint64(6));
        QCOMPARE(def.nullable, false);
    }
    bytes[bytes.size() - 7] = char(0xfe); // any type and size are taken as they stand
    bytes.replace(bytes.size() - 6, 4, "\xff\xff\xff\xff");
    QDataStream in(bytes);
    TableColumnDef def;
    def.read(in);
    QCOMPARE(int(def.type), -2);
    QCOMPARE(def.size, qint64(-1));
}

QTEST_APPLESS_MAIN(TestColumns)

#include "tst_columns.moc"
