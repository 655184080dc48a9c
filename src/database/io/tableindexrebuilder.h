// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QList>
#include <QPair>
#include <QString>

class Index;
class Table;

/// Takes a table's indexes away for the time of bulk work: while it lives the table has no indexes
/// attached and every index is empty; its destructor builds each of them once from the master index
/// and attaches it again, in the old order and under its old name.
///
/// The order follows who reads from whom. Emptied: plain indexes, those that depend on an index,
/// joins; built: joins, dependent ones, plain ones, so that a view sorted by a joined column finds
/// it filled.
///
/// The master index is left alone and must hold the rows when the guard ends. An index named
/// "IndexLimit" trims nothing meanwhile. An index with several names gets the first back.
///
/// Ownership: owns nothing; the table and its indexes must outlive the guard. Threads: takes no
/// lock; keep others away from the indexes, and end an update bracket that was opened inside the
/// guard before the guard ends. Errors: nothing is thrown; an index whose clear() or build() throws
/// is attached as that left it, with a warning.
///
///     {
///         TableIndexRebuilder guard(&quotes);
///         quotes.appendList(millionsOfRecords);
///     } // all views are sorted once, here
class LIVETABLE_EXPORT TableIndexRebuilder
{
public:
    /// Empties the table's indexes and takes them off. The table must not be null.
    explicit TableIndexRebuilder(Table* indexed);
    ~TableIndexRebuilder();

    /// Sorts indexes into the three groups, adding to what they hold, in list order. Done by the
    /// constructor for the table's own.
    void detectIndexGroup(const QList<Index*>& indexes);

private:
    Q_DISABLE_COPY(TableIndexRebuilder)

    Table* const table;
    QList<QPair<Index*, QString>> saved; // in the order of attachment
    QList<Index*> joinGroup;
    QList<Index*> dependentGroup;
    QList<Index*> plainGroup;
};
