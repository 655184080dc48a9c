// SPDX-License-Identifier: MIT
#pragma once

#include "columns.h"

#include "table/record.h"

#include <QStyledItemDelegate>

/// Paints the cells of a grid over a TableModel: figures with fixed decimals, tints for what went
/// up or down that fade, and a plain line editor. It reads the row itself and asks the style for
/// nothing, which is what makes a full screen of cells a matter of few milliseconds.
class Cells : public QStyledItemDelegate
{
    Q_OBJECT

public:
    /// How long a tint takes to fade, and the models have to remember a change.
    static constexpr int FadeMs = 900;

    explicit Cells(const Columns& shown, QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const override;
    void setEditorData(QWidget* editor, const QModelIndex& index) const override;
    void setModelData(QWidget* editor, QAbstractItemModel* model,
                      const QModelIndex& index) const override;
    void updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option,
                              const QModelIndex& index) const override;

protected:
    /// What lies behind a cell that is not selected.
    virtual QColor background(const Record& row, const Column& column) const;
    /// What a cell that is not the selection is written in.
    virtual QColor ink(const Record& row, const Column& column) const;

private:
    const Columns columns;
};
