// SPDX-License-Identifier: MIT
#pragma once

#include "columns.h"

#include <QElapsedTimer>
#include <QTableView>

class Cells;
class GridHeader;
class QMenu;
class QTimer;
class Settings;
class TableModel;

/// A table view as trading screens have it: thin rows, a line between them and nothing else, no row
/// numbers; columns that share the room there is, and are moved, resized, and shown or hidden by a
/// menu (of the header, or by the key for menus). Copy puts the selected cells on the clipboard.
class Grid : public QTableView
{
    Q_OBJECT

public:
    /// Rows are told at most that often.
    static constexpr int FlushMs = 80;

    /// `painter` becomes the grid's.
    Grid(const Columns& shown, Cells* painter, QWidget* parent = nullptr);

    /// Shows the model's rows, or none for null; all models of a grid have its columns. It stays
    /// the caller's, who shows another one before it dies.
    void show(TableModel* model);
    using QTableView::show;

    const Columns& columns() const { return allColumns; }
    GridHeader* header() const { return titles; }

    bool isEditing() const { return state() == EditingState; }

    /// Typed letters and digits look for a row by this column.
    void setSearchColumn(int column) { searchedColumn = column; }
    int searchColumn() const { return searchedColumn; }

    void saveColumns(Settings& settings, const QString& key) const;
    void loadColumns(const Settings& settings, const QString& key);

    /// An entry for each column, to show and hide it.
    void fillColumnMenu(QMenu& menu);

    void keyboardSearch(const QString& typed) override;

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void showColumnMenu(const QPoint& globalPosition);
    void copySelection() const;
    void noteChange();
    void fade();
    void noteWidth(int column, int oldWidth, int newWidth);
    void fitColumns();

    const Columns allColumns;
    GridHeader* titles;
    QAbstractItemModel* nothing; ///< shown while there is no other model, else null
    QTimer* fading;
    QVector<int> wantedWidths; ///< before they are fitted to the room there is
    bool isFitting = false;
    QElapsedTimer sinceChange;
    QElapsedTimer sinceTyped;
    QString typedText;
    int searchedColumn = 0;
};
