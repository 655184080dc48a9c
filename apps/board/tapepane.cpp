// SPDX-License-Identifier: MIT
#include "tapepane.h"

#include "cells.h"
#include "panestrip.h"

#include <QVBoxLayout>

namespace {

Columns tapeColumns()
{
    const auto make = [](int source, const char* name, const QString& title, const QString& tip,
                         Column::Kind kind, int decimals, int width, Column::Tone tone) {
        Column column;
        column.source = source;
        column.name = QString::fromLatin1(name);
        column.title = title;
        column.tip = tip;
        column.kind = kind;
        column.decimals = decimals;
        column.width = width;
        column.tone = tone;
        return column;
    };
    const auto tr = [](const char* text) { return TapePane::tr(text); };
    Columns columns{
        make(Board::TapeTime, "time", tr("Time"), tr("Time"), Column::Time, 0, 60, Column::Quiet),
        make(Board::TapeExpiry, "expiry", tr("Expiry"), tr("Expiry"), Column::Expiry, 0, 68,
             Column::Quiet),
        make(Board::TapeRight, "right", tr("C/P"), tr("Call or put"), Column::Text, 0, 34,
             Column::Quiet),
        make(Board::TapeStrike, "strike", tr("Strike"), tr("Strike, points"), Column::Number, 0, 48,
             Column::Main),
        make(Board::TapeBidSize, "bidSize", tr("Size"), tr("Bid size, contracts"), Column::Number,
             0, 42, Column::Quiet),
        make(Board::TapeBid, "bid", tr("Bid"), tr("Bid, points"), Column::Number, 2, 58,
             Column::Main),
        make(Board::TapeAsk, "ask", tr("Ask"), tr("Ask, points"), Column::Number, 2, 58,
             Column::Main),
        make(Board::TapeAskSize, "askSize", tr("Size"), tr("Ask size, contracts"), Column::Number,
             0, 42, Column::Quiet)};
    columns[2].alignment = Qt::AlignHCenter;
    for (const int size : {4, 7})
        columns[size].hidesZero = true;
    return columns;
}

} // namespace

TapePane::TapePane(QWidget* parent)
    : QWidget(parent)
    , strip(new PaneStrip(tr("Tape")))
{
    const Columns columns = tapeColumns();
    cells = new Grid(columns, new Cells(columns));
    cells->setObjectName(QStringLiteral("tape"));
    cells->setAccessibleName(tr("Tape"));
    cells->setSearchColumn(3);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(cells);
    setFocusProxy(cells);
}

TapePane::~TapePane()
{
    setMarket(nullptr);
}

QWidget* TapePane::head() const
{
    return strip;
}

void TapePane::setMarket(Market* shown)
{
    std::unique_ptr<SortedView> built;
    std::unique_ptr<TableModel> model;
    if (shown) {
        built = std::make_unique<SortedView>(&shown->board.tape(),
                                             QStringList{QStringLiteral("-sequence")});
        model = std::make_unique<TableModel>(built.get());
        QVector<int> sources;
        for (const Column& column : cells->columns())
            sources += column.source;
        model->setColumns(sources);
        model->setFlushInterval(Grid::FlushMs);
        if (frozen)
            model->freeze();
    }
    cells->show(model.get());
    rows.swap(model); // the grid has let go of the old one
    model.reset();
    newest.swap(built);
}

void TapePane::setFrozen(bool isFrozen)
{
    frozen = isFrozen;
    strip->setState(frozen ? tr("Frozen") : QString());
    if (rows)
        frozen ? rows->freeze() : rows->thaw();
}
