// SPDX-License-Identifier: MIT
// The format is what the document says: its example byte for byte, a reader written from it alone,
// and files of earlier versions, which every later one must read.
#include "index/masterindex.h"
#include "support/journal.h"
#include "tables.h"

#include <QProcess>
#include <QStandardPaths>

namespace {

/// The table in the golden files, and with other seeds those of the reader test.
void makeTable(Table& table, int columns, int rows, quint32 seed)
{
    addColumns(table, columns);
    table.setMasterIndex(new MasterIndex_Column_Pure(&table, QStringList{"c2", "c0"}));
    fill(table, rows, seed);
}

QString cellText(const Field& cell)
{
    if (cell.isNull())
        return "NULL";
    if (cell.type() == FieldType::Double)
        return QString::asprintf("%.17g", cell.toDouble());
    return cell.type() == FieldType::BoardList ? cell.toBoardList().toString() : cell.toString();
}

/// What readtable.py is to print.
QByteArray dump(const Table& table)
{
    const auto quoted = [](const QString& text) {
        return text.isNull() ? QString("null") : "'" + text + "'";
    };
    QString text;
    for (const TableColumnDef* def : table.fieldDefs())
        text += QString("column %1 %2 %3 %4 %5 %6 %7\n")
                    .arg(quoted(def->name), quoted(def->title), quoted(def->description),
                         QString::number(def->length), QString::number(int(def->type)),
                         QString::number(def->nullable), QString::number(def->flag));
    text += "key " + table.masterIndex()->columnNames().join(' ') + "\n";
    for (int i = 0; i < table.rowCount(); ++i) {
        text += "row";
        for (int c = 0; c < table.columnCount(); ++c)
            text += "|" + cellText(table.data(i, c));
        text += "\n";
    }
    return text.toUtf8();
}

} // namespace

class tst_Format : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void exampleOfTheDocument()
    {
        const QByteArray page = contentOf(QStringLiteral(DOCUMENT));
        const int from = page.indexOf("```hex\n") + 7;
        QByteArray wanted;
        for (const QByteArray& line : page.mid(from, page.indexOf("```", from) - from).split('\n'))
            wanted += QByteArray::fromHex(line.left(line.indexOf("  ")));
        QVERIFY(wanted.size() > 100);

        Table table("t");
        table.addColumn("n", FieldType::Integer, 0, false, "N", true, "");
        table.addColumn("s", FieldType::VarChar, 3, true, QString(), false, "d");
        table.setMasterIndex(new MasterIndex_Column_Pure(&table, QString("n")));
        table.appendList({row(table, 258, "ab"), row(table, -1)});
        QCOMPARE(bytesOf(table).toHex(' '), wanted.toHex(' '));
    }

    void independentReader()
    {
        const QString python = QStandardPaths::findExecutable("python3");
        if (python.isEmpty())
            QSKIP("there is no python3");
        const QTemporaryDir folder;
        TestCore core;
        for (const int columns : {3, 9, 70}) {
            for (const QString& kind : {QString(), QString(".gz"), QString(".list")}) {
                Table table("t");
                makeTable(table, columns, columns == 3 ? 0 : 40, quint32(columns));
                const QString path = folder.filePath("t" + kind);
                core.setCompressTables(kind == ".gz");
                QByteArray wanted = dump(table);
                QStringList arguments = {READER};
                if (kind == ".list") {
                    putContent(path, listBytes(table) + listBytes(table));
                    wanted = table.rowCount() == 0 ? QByteArray()
                                                   : "list t\n" + wanted + "list t\n" + wanted;
                    arguments += "--lists";
                } else {
                    TableIO(&table).write(QDir(folder.path()));
                }
                QProcess reader;
                reader.start(python, arguments + QStringList(path));
                QVERIFY(reader.waitForFinished());
                QVERIFY2(reader.exitCode() == 0, reader.readAllStandardError());
                const QByteArray got = reader.readAllStandardOutput();
                QVERIFY2(got == wanted, "printed:\n" + got + "in the table:\n" + wanted);
            }
        }
    }

    void goldenFiles()
    {
        TestCore core;
        Table table("quotes");
        makeTable(table, 9, 5, 7);
        for (const QString& name : {QString("quotes"), QString("zipped")})
            for (const bool strict : {false, true}) {
                Table read(name);
                TableIO io(&read);
                io.setStrict(strict);
                io.read(QDir(GOLDEN_DIR), true);
                QVERIFY2(io.status() == TableIO::Ok, qPrintable(io.errorString()));
                QCOMPARE(difference(table, read), QString());
            }
        core.addTable("quotes", &table);
        const QByteArray list = contentOf(GOLDEN_DIR "/quotes.list");
        QDataStream stream(list);
        FilterProgressTrue all;
        PartitionList<Record> records;
        TableIO(&table).readRowList(all, stream, records, false);
        QCOMPARE(records.count(), 5);
        for (int i = 0; i < 5; ++i)
            QCOMPARE(difference(table.at(i), records.at(i)), QString());
        // What is written is still the same.
        QCOMPARE(bytesOf(table), contentOf(GOLDEN_DIR "/quotes"));
        QCOMPARE(listBytes(table), list);
    }
};

QTEST_MAIN(tst_Format)
#include "tst_format.moc"
