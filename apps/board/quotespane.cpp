// SPDX-License-Identifier: MIT
#include "quotespane.h"

#include "cells.h"
#include "figures.h"
#include "gridheader.h"
#include "panestrip.h"
#include "theme.h"

#include <QAction>
#include <QLineEdit>
#include <QVBoxLayout>

#include <algorithm>
#include <functional>

namespace {

Columns quoteColumns()
{
    const auto number = [](int source, const char* name, const QString& title, const QString& tip,
                           int decimals, int width, Column::Tone tone) {
        Column column;
        column.source = source;
        column.name = QString::fromLatin1(name);
        column.title = title;
        column.tip = tip;
        column.decimals = decimals;
        column.width = width;
        column.tone = tone;
        return column;
    };
    const auto tr = [](const char* text) { return QuotesPane::tr(text); };
    Columns columns{
        number(Board::Expiry, "expiry", tr("Expiry"), tr("Expiry"), 0, 68, Column::Quiet),
        number(Board::Right, "right", tr("C/P"), tr("Call or put"), 0, 34, Column::Quiet),
        number(Board::Strike, "strike", tr("Strike"), tr("Strike, points"), 0, 48, Column::Main),
        number(Board::BidSize, "bidSize", tr("Size"), tr("Bid size, contracts"), 0, 42,
               Column::Quiet),
        number(Board::Bid, "bid", tr("Bid"), tr("Bid, points"), 2, 58, Column::Main),
        number(Board::Ask, "ask", tr("Ask"), tr("Ask, points"), 2, 58, Column::Main),
        number(Board::AskSize, "askSize", tr("Size"), tr("Ask size, contracts"), 0, 42,
               Column::Quiet),
        number(Board::Spread, "spread", tr("Spread"), tr("Spread, points"), 2, 52, Column::Main),
        number(Board::Volatility, "volatility", tr("IV %"), tr("Implied volatility, percent"), 2,
               52, Column::Main),
        number(Board::Delta, "delta", tr("Delta"), tr("Delta"), 3, 56, Column::Quiet),
        number(Board::Time, "time", tr("Time"), tr("Time of the quote"), 0, 62, Column::Quiet)};
    columns[0].kind = Column::Expiry;
    columns[1].kind = Column::Text;
    columns[1].alignment = Qt::AlignHCenter;
    columns[8].factor = 100;
    columns[10].kind = Column::Time;
    for (const int tinted : {4, 5})
        columns[tinted].isTinted = true;
    for (const int size : {3, 6})
        columns[size].hidesZero = true;
    columns[9].isShown = false;
    columns[10].isShown = false;
    return columns;
}

using Test = std::function<bool(const Record&)>;

/// What one word asks for.
Test testOf(const QString& word)
{
    const QString upper = word.toUpper();
    if (upper == QLatin1String("C") || upper == QLatin1String("P")) {
        const QChar right = upper.at(0);
        return [right](const Record& row) { return row.data(Board::Right).toChar() == right; };
    }
    bool isNumber = false;
    const double limit = word.mid(1).toDouble(&isNumber);
    if (word.startsWith(QLatin1Char('>')) && isNumber)
        return [limit](const Record& row) { return row.data(Board::Strike).toDouble() > limit; };
    if (word.startsWith(QLatin1Char('<')) && isNumber)
        return [limit](const Record& row) { return row.data(Board::Strike).toDouble() < limit; };
    return [word](const Record& row) {
        return row.data(Board::Strike).toString().startsWith(word) ||
               expiryText(row.data(Board::Expiry).toInteger()).contains(word, Qt::CaseInsensitive);
    };
}

} // namespace

QuotesPane::QuotesPane(QWidget* parent)
    : QWidget(parent)
    , strip(new PaneStrip(tr("Quotes")))
    , words(new QLineEdit)
{
    const Columns columns = quoteColumns();
    cells = new Grid(columns, new Cells(columns));
    cells->setObjectName(QStringLiteral("quotes"));
    cells->setAccessibleName(tr("Quotes"));
    cells->setSearchColumn(2);
    words->setObjectName(QStringLiteral("filter"));
    words->setPlaceholderText(tr("Filter: P 32 >3100 jun"));
    words->setAccessibleName(tr("Filter of the quotes"));
    words->setClearButtonEnabled(true);
    words->setFont(Theme::captions());
    strip->add(words, 4);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(cells);
    setFocusProxy(cells);
    connect(words, &QLineEdit::textChanged, this, &QuotesPane::applyFilter);
    connect(words, &QLineEdit::returnPressed, cells, qOverload<>(&QWidget::setFocus));
    connect(cells->header(), &QHeaderView::sectionClicked, this, &QuotesPane::sortBy);

    auto* byCurrent = new QAction(tr("Sort by this column"), cells);
    byCurrent->setShortcut(QKeySequence(int(Qt::CTRL) + Qt::Key_Space));
    byCurrent->setShortcutContext(Qt::WidgetShortcut);
    cells->addAction(byCurrent);
    connect(byCurrent, &QAction::triggered, this, [this] {
        if (cells->currentIndex().isValid())
            sortBy(cells->currentIndex().column());
    });
}

QuotesPane::~QuotesPane()
{
    setMarket(nullptr);
}

QWidget* QuotesPane::head() const
{
    return strip;
}

void QuotesPane::setMarket(Market* shown)
{
    market = shown;
    rebuild();
}

void QuotesPane::sortBy(int column)
{
    setOrder(column, column == order ? !descending : false);
}

void QuotesPane::setOrder(int column, bool isDescending)
{
    if (column < 0 || column >= cells->columns().size())
        return;
    order = column;
    descending = isDescending;
    rebuild();
}

void QuotesPane::rebuild()
{
    std::unique_ptr<SortedView> built;
    std::unique_ptr<TableModel> model;
    if (market) {
        QVector<SortColumn> columns{{cells->columns()[order].source,
                                     descending ? SortColumn::Descending : SortColumn::Ascending,
                                     SortColumn::NullsLast}};
        for (const int tie : {Board::Expiry, Board::Strike, Board::Right})
            columns.append(SortColumn{tie});
        built = std::make_unique<SortedView>(&market->board.options(), columns);
        model = std::make_unique<TableModel>(built.get());
        QVector<int> sources;
        for (const Column& column : cells->columns())
            sources += column.source;
        model->setColumns(sources);
        model->setFlushInterval(Grid::FlushMs);
        model->setHighlightTime(Cells::FadeMs);
        if (frozen)
            model->freeze();
    }
    cells->show(model.get());
    rows.swap(model); // the grid has let go of the old one
    model.reset();
    view.swap(built);
    cells->header()->setOrder(order, descending);
    if (view && !words->text().isEmpty())
        applyFilter();
}

void QuotesPane::applyFilter()
{
    if (!view)
        return;
    QVector<Test> tests;
    const QStringList parts = words->text().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString& word : parts)
        tests += testOf(word);
    if (tests.isEmpty()) {
        view->setFilter(nullptr);
        return;
    }
    view->setFilter(
        [tests](const Record& row) {
            return std::all_of(tests.begin(), tests.end(),
                               [&row](const Test& test) { return test(row); });
        },
        {Board::Expiry, Board::Right, Board::Strike});
}

void QuotesPane::setFilter(const QString& text)
{
    words->setText(text);
}

QString QuotesPane::filter() const
{
    return words->text();
}

void QuotesPane::focusFilter()
{
    words->setFocus();
    words->selectAll();
}

void QuotesPane::setFrozen(bool isFrozen)
{
    frozen = isFrozen;
    strip->setState(frozen ? tr("Frozen") : QString());
    if (rows)
        frozen ? rows->freeze() : rows->thaw();
}
