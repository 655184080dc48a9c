// SPDX-License-Identifier: MIT
#include "cells.h"

#include "theme.h"

#include "model/tablemodel.h"

#include <QDateTime>
#include <QLineEdit>
#include <QPainter>

namespace {

const char* const Begun = "begun"; // an editor that has its text

/// The tint of a change, from full to none.
double strengthOf(const TableModel::Highlight& change)
{
    const qint64 age = QDateTime::currentMSecsSinceEpoch() - change.changedMs;
    if (age < 0 || age >= Cells::FadeMs)
        return 0;
    return 1 - double(age) / Cells::FadeMs;
}

} // namespace

Cells::Cells(const Columns& shown, QObject* parent)
    : QStyledItemDelegate(parent)
    , columns(shown)
{}

QColor Cells::background(const Record&, const Column&) const
{
    return Theme::current().base;
}

QColor Cells::ink(const Record&, const Column& column) const
{
    const Theme& theme = Theme::current();
    return column.tone == Column::Quiet ? theme.quiet : theme.text;
}

void Cells::paint(QPainter* painter, const QStyleOptionViewItem& option,
                  const QModelIndex& index) const
{
    const auto* model = qobject_cast<const TableModel*>(index.model());
    if (!model)
        return;
    const Theme& theme = Theme::current();
    const Column& column = columns[index.column()];
    const Record row = model->record(index.row());
    const QRect& area = option.rect;
    QColor below = theme.base;
    QColor letters = theme.quiet;
    if (!row.isNull()) {
        below = background(row, column);
        letters = ink(row, column);
    }
    if (option.state & QStyle::State_Selected)
        below = blend(below, theme.selection, 0.55);
    if (column.isTinted) {
        const QVariant change = model->data(index, TableModel::HighlightRole);
        if (change.isValid()) {
            constexpr double full = 0.42;
            const auto highlight = change.value<TableModel::Highlight>();
            const double strength = full * strengthOf(highlight);
            if (highlight.direction != 0 && strength > 0)
                below = blend(below, highlight.direction > 0 ? theme.up : theme.down, strength);
        }
    }
    painter->fillRect(area.adjusted(0, 0, 0, -1), below);
    // A filled rectangle costs a tenth of a line that is drawn.
    painter->fillRect(area.left(), area.bottom(), area.width(), 1, theme.line);
    if (option.state & QStyle::State_HasFocus && option.state & QStyle::State_Active) {
        painter->setPen(theme.accent);
        painter->drawRect(area.adjusted(0, 0, -1, -1));
    }
    if (row.isNull())
        return;
    const QString text = textOf(column, row.data(column.source));
    constexpr int margin = 6;
    painter->setPen(letters);
    painter->setFont(column.tone == Column::Strong ? Theme::strongFigures() : Theme::figures());
    painter->drawText(area.adjusted(margin, 0, -margin, -1),
                      int(column.alignment | Qt::AlignVCenter) | Qt::TextSingleLine, text);
}

QSize Cells::sizeHint(const QStyleOptionViewItem&, const QModelIndex& index) const
{
    return {columns[index.column()].width, Theme::rowHeight()};
}

QWidget* Cells::createEditor(QWidget* parent, const QStyleOptionViewItem&, const QModelIndex&) const
{
    auto* editor = new QLineEdit(parent);
    editor->setFont(Theme::figures());
    editor->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    editor->setStyleSheet(QStringLiteral("border-radius: 0; padding: 0 3px;"));
    editor->setFrame(false);
    return editor;
}

// A row under the editor may tick meanwhile: what its user has typed stays.
void Cells::setEditorData(QWidget* editor, const QModelIndex& index) const
{
    if (editor->property(Begun).toBool())
        return;
    editor->setProperty(Begun, true);
    static_cast<QLineEdit*>(editor)->setText(index.data(Qt::EditRole).toString());
}

void Cells::setModelData(QWidget* editor, QAbstractItemModel* model, const QModelIndex& index) const
{
    model->setData(index, static_cast<QLineEdit*>(editor)->text().trimmed(), Qt::EditRole);
}

void Cells::updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option,
                                 const QModelIndex&) const
{
    editor->setGeometry(option.rect);
}
