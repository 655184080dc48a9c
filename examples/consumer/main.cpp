// SPDX-License-Identifier: MIT
// A program of its own that uses the installed library: open orders with the quotes of their
// instruments, sorted by how far each is from its market, saved to a folder and read back.
//
//     consumer [folder]      (the working directory, when none is named)

#include <livetable/LiveJoin>
#include <livetable/MasterIndex_Column_Pure>
#include <livetable/RecordUpdater>
#include <livetable/SortedView>
#include <livetable/Table>
#include <livetable/TableIO>
#include <livetable/TableModel> // of the component Model

// The same headers may also be named like this.
#include <livetable/base/version.h>

#include <QCoreApplication>
#include <QDir>
#include <QTextStream>
#include <QVariant>

namespace {

void quote(Table& quotes, const QString& symbol, const QString& bid)
{
    RecordsTrans change(&quotes);
    const Record row = quotes.masterIndex()->findRecord(symbol);
    if (row.isNull()) {
        Record fresh(&quotes);
        fresh.data(0) = symbol;
        fresh.data(1) = decimal(bid);
        change.insert(fresh);
    } else {
        RecordUpdater(change, row).data(1) = decimal(bid);
    }
    change.execute();
}

void order(Table& orders, const QString& symbol, int quantity)
{
    Record row(&orders);
    row.data(0) = symbol;
    row.data(1) = quantity;
    orders.appendList({row});
}

QString firstOf(const SortedView& view)
{
    return view.count() == 0 ? QString() : view.at(0).data(0).toString();
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    const QDir folder(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::currentPath());
    QTextStream out(stdout);
    out << "livetable " << LiveTable::version() << '\n';

    const QString symbol = QStringLiteral("symbol");
    const QString bid = QStringLiteral("bid");
    Table quotes(QStringLiteral("quotes"));
    quotes.addColumn(symbol, FieldType::VarChar, 12, false);
    quotes.addColumn(bid, FieldType::Decimal, 2);
    quotes.setMasterIndex(new MasterIndex_Column_Pure(&quotes, symbol));

    Table orders(QStringLiteral("orders"));
    orders.addColumn(symbol, FieldType::VarChar, 12, false);
    orders.addColumn(QStringLiteral("quantity"), FieldType::Integer);
    orders.setMasterIndex(new MasterIndex_Column_Pure(&orders, symbol));
    const LiveJoin join(&orders, &quotes, {bid});
    const int joinedBid = join.column(&quotes, bid);

    SortedView dearest(&orders, QStringList{QLatin1Char('-') + bid});
    dearest.setFilter([=](const Record& r) { return !r.data(joinedBid).isNull(); }, {joinedBid});

    order(orders, QStringLiteral("SBER"), 100);
    order(orders, QStringLiteral("GAZP"), 10);
    order(orders, QStringLiteral("LKOH"), 5); // has no quote, so the view leaves it out
    quote(quotes, QStringLiteral("SBER"), QStringLiteral("271.10"));
    quote(quotes, QStringLiteral("GAZP"), QStringLiteral("165.25"));
    const TableModel model(&dearest); // for a QTableView, say
    const QString before = firstOf(dearest);
    quote(quotes, QStringLiteral("GAZP"), QStringLiteral("271.11"));
    const QString after = firstOf(dearest);
    for (const Record& row : dearest)
        out << row.data(0).toString() << ' ' << row.data(joinedBid).toString() << '\n';

    TableIO saved(&orders);
    saved.write(folder);
    Table loaded(QStringLiteral("orders"));
    TableIO reader(&loaded);
    reader.read(folder, true);
    out << "saved and loaded: " << loaded.rowCount() << " orders\n";

    // Values travel in variants as soon as the library is there.
    const QString text = QVariant::fromValue(decimal(QStringLiteral("12.50"))).toString();
    const bool isRight = before == QLatin1String("SBER") && after == QLatin1String("GAZP") &&
                         dearest.count() == 2 && model.rowCount() == 2 &&
                         saved.status() == TableIO::Ok && reader.status() == TableIO::Ok &&
                         loaded.rowCount() == 3 && text == QLatin1String("12.50");
    out << (isRight ? "all as expected\n" : "something is wrong\n");
    return isRight ? 0 : 1;
}
