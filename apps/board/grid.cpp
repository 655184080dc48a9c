// SPDX-License-Identifier: MIT
#include "grid.h"

#include "cells.h"
#include "gridheader.h"
#include "theme.h"

#include "model/tablemodel.h"
#include "settings/settings.h"

#include <QClipboard>
#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QStandardItemModel>
#include <QTimer>

#include <algorithm>

Grid::Grid(const Columns& shown, Cells* painter, QWidget* parent)
    : QTableView(parent)
    , allColumns(shown)
    , titles(new GridHeader(shown, this))
    , nothing(new QStandardItemModel(0, shown.size(), this))
    , fading(new QTimer(this))
{
    painter->setParent(this);
    setItemDelegate(painter);
    setHorizontalHeader(titles);
    titles->setSectionsClickable(true);
    titles->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(titles, &QHeaderView::customContextMenuRequested, this,
            [this](const QPoint& at) { showColumnMenu(titles->mapToGlobal(at)); });
    verticalHeader()->hide();
    verticalHeader()->setMinimumSectionSize(8);
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(Theme::rowHeight());
    setShowGrid(false);
    setFrameShape(QFrame::NoFrame);
    setWordWrap(false);
    setTabKeyNavigation(false); // Tab goes from pane to pane, arrows from cell to cell
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                    QAbstractItemView::AnyKeyPressed);

    setModel(nothing);
    for (int i = 0; i < allColumns.size(); ++i) {
        wantedWidths += allColumns[i].width;
        titles->setSectionHidden(i, !allColumns[i].isShown);
    }
    fitColumns();
    connect(titles, &QHeaderView::sectionResized, this, &Grid::noteWidth);

    fading->setInterval(FlushMs);
    connect(fading, &QTimer::timeout, this, &Grid::fade);
}

void Grid::show(TableModel* shown)
{
    // Widths, order and hidden columns stay; a header forgets them with its model.
    const QByteArray state = titles->saveState();
    isFitting = true;
    // A view makes selection models with each model, for its headers as well, which go when that
    // model does: so the one without rows is made anew each time.
    const QAbstractItemModel* before = nothing;
    nothing = shown ? nullptr : new QStandardItemModel(0, allColumns.size(), this);
    if (shown)
        setModel(shown);
    else
        setModel(nothing);
    delete before;
    titles->restoreState(state);
    isFitting = false;
    if (!shown)
        return;
    connect(shown, &QAbstractItemModel::dataChanged, this, &Grid::noteChange);
    connect(shown, &QAbstractItemModel::rowsInserted, this, &Grid::noteChange);
    connect(shown, &QAbstractItemModel::layoutChanged, this, &Grid::noteChange);
}

void Grid::noteChange()
{
    sinceChange.start();
    if (!fading->isActive())
        fading->start();
}

void Grid::fade()
{
    if (sinceChange.elapsed() >= FlushMs / 2) // else all was painted just now
        viewport()->update();
    if (sinceChange.elapsed() > Cells::FadeMs + FlushMs)
        fading->stop();
}

// A user has drawn at a column: it gets that width, the others what is left.
void Grid::noteWidth(int column, int oldWidth, int newWidth)
{
    if (isFitting || oldWidth <= 0 || newWidth <= 0)
        return;
    wantedWidths[column] = std::max(1, wantedWidths[column] * newWidth / oldWidth);
}

void Grid::fitColumns()
{
    // Tighter than that cuts figures, and wider than that tears the rows apart.
    constexpr double tightest = 0.9;
    constexpr double widest = 1.5;
    int wanted = 0;
    for (int i = 0; i < titles->count(); ++i)
        wanted += titles->isSectionHidden(i) ? 0 : wantedWidths[i];
    if (wanted == 0)
        return;
    const double room = viewport()->width();
    const double factor = std::clamp(room / wanted, tightest, widest);
    isFitting = true;
    double right = 0;
    int done = 0;
    for (int visual = 0; visual < titles->count(); ++visual) {
        const int i = titles->logicalIndex(visual);
        if (titles->isSectionHidden(i))
            continue;
        right += wantedWidths[i] * factor; // rounded as a whole, not column by column
        titles->resizeSection(i, int(right) - done);
        done = int(right);
    }
    isFitting = false;
}

void Grid::resizeEvent(QResizeEvent* event)
{
    QTableView::resizeEvent(event);
    fitColumns();
}

void Grid::saveColumns(Settings& settings, const QString& key) const
{
    QStringList order, hidden, widths;
    for (int visual = 0; visual < titles->count(); ++visual) {
        const int i = titles->logicalIndex(visual);
        order << allColumns[i].name;
        widths << QString::number(wantedWidths[i]);
        if (titles->isSectionHidden(i))
            hidden << allColumns[i].name;
    }
    settings.setValue(key + QStringLiteral("Order"), order);
    settings.setValue(key + QStringLiteral("Widths"), widths);
    settings.setValue(key + QStringLiteral("Hidden"), hidden);
}

void Grid::loadColumns(const Settings& settings, const QString& key)
{
    if (!settings.contains(key + QStringLiteral("Order")))
        return;
    const QStringList order = settings.value(key + QStringLiteral("Order")).toStringList();
    const QStringList widths = settings.value(key + QStringLiteral("Widths")).toStringList();
    const QStringList hidden = settings.value(key + QStringLiteral("Hidden")).toStringList();
    constexpr int widest = 400;
    int visual = 0;
    for (int at = 0; at < order.size(); ++at) {
        // A file may hold anything, and an older one not all columns.
        const auto named = [&](const Column& column) { return column.name == order[at]; };
        const auto found = std::find_if(allColumns.begin(), allColumns.end(), named);
        if (found == allColumns.end())
            continue;
        const int i = int(found - allColumns.begin());
        titles->moveSection(titles->visualIndex(i), visual++);
        const int width = widths.value(at).toInt();
        if (width >= titles->minimumSectionSize() && width <= widest)
            wantedWidths[i] = width;
    }
    for (int i = 0; i < allColumns.size(); ++i)
        titles->setSectionHidden(i, hidden.contains(allColumns[i].name));
    if (titles->hiddenSectionCount() == allColumns.size())
        titles->setSectionHidden(0, false);
    fitColumns();
}

void Grid::fillColumnMenu(QMenu& menu)
{
    for (int i = 0; i < allColumns.size(); ++i) {
        QAction* action = menu.addAction(allColumns[i].tip);
        action->setCheckable(true);
        action->setChecked(!titles->isSectionHidden(i));
        // The last one stays: a grid without columns could not be asked for any.
        action->setEnabled(titles->isSectionHidden(i) ||
                           titles->hiddenSectionCount() + 1 < allColumns.size());
        connect(action, &QAction::toggled, this, [this, i](bool isShown) {
            titles->setSectionHidden(i, !isShown);
            fitColumns();
        });
    }
}

void Grid::showColumnMenu(const QPoint& globalPosition)
{
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    fillColumnMenu(*menu);
    menu->popup(globalPosition);
}

void Grid::contextMenuEvent(QContextMenuEvent* event)
{
    showColumnMenu(event->globalPos());
}

void Grid::keyPressEvent(QKeyEvent* event)
{
    if (event->matches(QKeySequence::Copy))
        copySelection();
    else
        QTableView::keyPressEvent(event);
}

void Grid::copySelection() const
{
    const auto* shown = qobject_cast<const TableModel*>(model());
    if (!shown)
        return;
    QModelIndexList rows = selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end());
    QString text;
    for (const QModelIndex& index : qAsConst(rows)) {
        const Record row = shown->record(index.row());
        if (row.isNull())
            continue;
        QStringList cells;
        for (int visual = 0; visual < titles->count(); ++visual) {
            const int i = titles->logicalIndex(visual);
            if (!titles->isSectionHidden(i))
                cells << textOf(allColumns[i], row.data(allColumns[i].source));
        }
        text += cells.join(QLatin1Char('\t')) + QLatin1Char('\n');
    }
    if (!text.isEmpty())
        QGuiApplication::clipboard()->setText(text);
}

// Looks for what was typed within a second, from the top.
void Grid::keyboardSearch(const QString& typed)
{
    constexpr int pauseMs = 1000;
    if (!sinceTyped.isValid() || sinceTyped.elapsed() > pauseMs)
        typedText.clear();
    sinceTyped.start();
    typedText += typed;
    const auto* shown = qobject_cast<const TableModel*>(model());
    for (int i = 0; shown && i < shown->rowCount(); ++i) {
        const Record row = shown->record(i);
        const Column& column = allColumns[searchedColumn];
        if (row.isNull() ||
            !textOf(column, row.data(column.source)).startsWith(typedText, Qt::CaseInsensitive))
            continue;
        const int current = currentIndex().isValid() ? currentIndex().column() : searchedColumn;
        setCurrentIndex(shown->index(i, current));
        scrollTo(currentIndex());
        return;
    }
}
