// SPDX-License-Identifier: MIT
#include "optionboard.h"

#include "chaincells.h"
#include "figures.h"
#include "gridheader.h"
#include "market.h"
#include "panestrip.h"
#include "theme.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QVBoxLayout>

#include <cmath>
#include <limits>

namespace {

Column side(char right, Chain::Value value)
{
    struct Look
    {
        const char* name;
        const char* title;
        const char* tip;
        int decimals;
        double factor;
        Column::Tone tone;
        int width;
        bool isTinted;
    };
    static const Look looks[Chain::ValueCount] = {
        {"Held", QT_TR_NOOP("Held"), QT_TR_NOOP("contracts held"), 0, 1, Column::Main, 48, false},
        {"Theta", QT_TR_NOOP("Theta"), QT_TR_NOOP("theta: points in a day"), 3, 1, Column::Quiet,
         58, false},
        {"Vega", QT_TR_NOOP("Vega"), QT_TR_NOOP("vega: points for one percent of volatility"), 3, 1,
         Column::Quiet, 54, false},
        {"Gamma", QT_TR_NOOP("Gamma"), QT_TR_NOOP("gamma: delta for one point"), 5, 1,
         Column::Quiet, 66, false},
        {"Delta", QT_TR_NOOP("Delta"), QT_TR_NOOP("delta"), 3, 1, Column::Quiet, 58, false},
        {"Volatility", QT_TR_NOOP("IV %"), QT_TR_NOOP("implied volatility, percent a year"), 2, 100,
         Column::Main, 54, false},
        {"BidSize", QT_TR_NOOP("Size"), QT_TR_NOOP("bid size, contracts"), 0, 1, Column::Quiet, 48,
         false},
        {"Bid", QT_TR_NOOP("Bid"), QT_TR_NOOP("bid, points"), 2, 1, Column::Main, 66, true},
        {"Ask", QT_TR_NOOP("Ask"), QT_TR_NOOP("ask, points"), 2, 1, Column::Main, 66, true},
        {"AskSize", QT_TR_NOOP("Size"), QT_TR_NOOP("ask size, contracts"), 0, 1, Column::Quiet, 48,
         false}};
    const Look& look = looks[value];
    const bool isCall = right == 'C';
    Column column;
    column.source = Chain::column(right, value);
    column.name = QLatin1String(isCall ? "call" : "put") + QLatin1String(look.name);
    column.title = OptionBoard::tr(look.title);
    column.tip =
        (isCall ? OptionBoard::tr("Call: ") : OptionBoard::tr("Put: ")) + OptionBoard::tr(look.tip);
    column.decimals = look.decimals;
    column.factor = look.factor;
    column.tone = look.tone;
    column.width = look.width;
    column.isTinted = look.isTinted;
    column.hidesZero = look.decimals == 0;
    return column;
}

/// Calls, the strike, and puts; greeks outside, prices next to the strike.
Columns boardColumns()
{
    using C = Chain;
    const Chain::Value outer[] = {C::Held,       C::Theta,   C::Vega, C::Gamma, C::Delta,
                                  C::Volatility, C::BidSize, C::Bid,  C::Ask,   C::AskSize};
    const Chain::Value inner[] = {C::BidSize, C::Bid,   C::Ask,  C::AskSize, C::Volatility,
                                  C::Delta,   C::Gamma, C::Vega, C::Theta,   C::Held};
    Columns columns;
    for (const Chain::Value value : outer)
        columns += side('C', value);
    Column strike;
    strike.source = Chain::Strike;
    strike.name = QStringLiteral("strike");
    strike.title = OptionBoard::tr("Strike");
    strike.tip = OptionBoard::tr("Strike, points");
    strike.tone = Column::Strong;
    strike.alignment = Qt::AlignHCenter;
    strike.width = 66;
    columns += strike;
    for (const Chain::Value value : inner)
        columns += side('P', value);
    return columns;
}

QVector<int> sourcesOf(const Columns& columns)
{
    QVector<int> sources;
    for (const Column& column : columns)
        sources += column.source;
    return sources;
}

} // namespace

OptionBoard::OptionBoard(QWidget* parent)
    : QWidget(parent)
    , strip(new PaneStrip(tr("Option board")))
    , buttons(new QButtonGroup(this))
    , buttonRow(new QHBoxLayout)
    , remaining(new QLabel)
    , calls(new QLabel(tr("Calls"), strip))
    , puts(new QLabel(tr("Puts"), strip))
{
    const Columns columns = boardColumns();
    painter = new ChainCells(columns);
    cells = new Grid(columns, painter);
    cells->setObjectName(QStringLiteral("optionBoard"));
    cells->setAccessibleName(tr("Option board"));
    cells->setVerticalScrollMode(QAbstractItemView::ScrollPerItem);
    cells->setSearchColumn(sourcesOf(columns).indexOf(Chain::Strike));
    setObjectName(QStringLiteral("pane"));
    setAttribute(Qt::WA_StyledBackground);

    auto* expiries = new QWidget;
    expiries->setLayout(buttonRow);
    buttonRow->setContentsMargins(0, 0, 0, 0);
    buttonRow->setSpacing(2);
    strip->add(expiries);
    remaining->setObjectName(QStringLiteral("caption"));
    remaining->setFont(Theme::captions());
    strip->add(remaining);
    for (QLabel* label : {calls, puts}) {
        label->setObjectName(QStringLiteral("title"));
        label->setFont(Theme::strongFigures());
    }
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(strip);
    layout->addWidget(cells, 1);
    setFocusProxy(cells);
    connect(buttons, &QButtonGroup::idClicked, this, &OptionBoard::setExpiry);
}

OptionBoard::~OptionBoard()
{
    setMarket(nullptr);
}

void OptionBoard::setMarket(Market* shown)
{
    cells->show(nullptr);
    rows.reset();
    strikes.reset();
    market = shown;
    shownExpiries.clear();
    if (market)
        refresh();
}

void OptionBoard::refresh()
{
    placeSides();
    if (!market)
        return;
    if (market->chain.expiries() != shownExpiries)
        fillExpiries();
    if (!rows && shownExpiries.count(shownExpiry))
        showExpiry();
    if (!rows)
        return;
    const double future = market->board.futureMid(shownExpiry);
    const int row = moneyRow();
    const Record money = rows->record(row);
    const double strike = money.isNull() ? 0 : money.data(Chain::Strike).toDouble();
    if (painter->setMoney(future, strike))
        cells->viewport()->update();
    if (following && !cells->isEditing())
        centre();
    const int days = int(std::ceil(secondsToExpiry(shownExpiry, market->info.timeMs) / 86'400));
    remaining->setText(tr("%1 days   future %2").arg(days).arg(figureText(future, 2)));
}

/// The words go on both sides of the strikes, wherever those are.
void OptionBoard::placeSides()
{
    constexpr int away = 6;
    const int section = cells->searchColumn();
    const int left = cells->header()->sectionViewportPosition(section);
    const int right = left + cells->header()->sectionSize(section);
    const int height = strip->height();
    const int width = calls->sizeHint().width();
    const bool isRoom = left - width > remaining->geometry().right() + away &&
                        right + puts->sizeHint().width() < strip->width();
    calls->setVisible(isRoom);
    puts->setVisible(isRoom);
    calls->setGeometry(left - width - away, 0, width, height);
    puts->setGeometry(right + away, 0, puts->sizeHint().width(), height);
}

void OptionBoard::fillExpiries()
{
    shownExpiries = market->chain.expiries();
    qDeleteAll(buttons->buttons());
    for (const int date : shownExpiries) {
        auto* button = new QPushButton(expiryText(date));
        button->setCheckable(true);
        button->setToolTip(tr("Ctrl+E: the next expiry"));
        button->setFocusPolicy(Qt::TabFocus);
        buttons->addButton(button, date);
        buttonRow->addWidget(button);
    }
    if (!shownExpiries.count(shownExpiry) && !shownExpiries.empty())
        shownExpiry = *shownExpiries.begin();
    if (QAbstractButton* button = buttons->button(shownExpiry))
        button->setChecked(true);
}

void OptionBoard::setExpiry(int date)
{
    if (date == shownExpiry && rows)
        return;
    shownExpiry = date;
    if (QAbstractButton* button = buttons->button(date))
        button->setChecked(true);
    if (market && shownExpiries.count(date)) {
        showExpiry();
        centre();
        refresh();
    }
}

void OptionBoard::nextExpiry()
{
    auto next = shownExpiries.upper_bound(shownExpiry);
    if (next == shownExpiries.end())
        next = shownExpiries.begin();
    if (next != shownExpiries.end())
        setExpiry(*next);
}

void OptionBoard::showExpiry()
{
    auto view =
        std::make_unique<SortedView>(&market->chain.rows(), QStringList{QStringLiteral("strike")});
    const int date = shownExpiry;
    view->setFilter(
        [date](const Record& row) { return row.data(Chain::Expiry).toInteger() == date; },
        {Chain::Expiry});
    auto model = std::make_unique<TableModel>(view.get());
    model->setColumns(sourcesOf(cells->columns()));
    model->setFlushInterval(Grid::FlushMs);
    model->setHighlightTime(Cells::FadeMs);
    for (int i = 0; i < cells->columns().size(); ++i) {
        const int source = cells->columns()[i].source;
        if (source > Chain::Strike && Chain::valueOf(source) == Chain::Held)
            model->setEditable(i);
    }
    connect(model.get(), &TableModel::editFailed, this,
            [this] { Q_EMIT refused(tr("Contracts held are whole numbers, such as 12 or -3")); });
    cells->show(model.get());
    if (frozen)
        model->freeze();
    rows.swap(model); // the view has let go of the old one
    model.reset();
    strikes.swap(view);
}

int OptionBoard::moneyRow() const
{
    const double future = market->board.futureMid(shownExpiry);
    if (future <= 0)
        return -1;
    int nearest = -1;
    double distance = std::numeric_limits<double>::infinity();
    for (int i = 0; i < rows->rowCount(); ++i) {
        const Record row = rows->record(i);
        if (row.isNull())
            continue;
        const double away = std::abs(row.data(Chain::Strike).toDouble() - future);
        if (away < distance) {
            distance = away;
            nearest = i;
        }
    }
    return nearest;
}

void OptionBoard::centre()
{
    const int row = market && rows ? moneyRow() : -1;
    if (row < 0)
        return;
    const int visible = cells->viewport()->height() / Theme::rowHeight();
    cells->verticalScrollBar()->setValue(row - visible / 2);
}

void OptionBoard::setFollowing(bool isFollowing)
{
    following = isFollowing;
    if (following)
        centre();
}

void OptionBoard::setFrozen(bool isFrozen)
{
    frozen = isFrozen;
    strip->setState(frozen ? tr("Frozen") : QString());
    if (rows)
        frozen ? rows->freeze() : rows->thaw();
}
