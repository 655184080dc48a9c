// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "table/record.h"
#include "table/recordstrans.h"

/// Writes single cells of a row as part of a transaction: the usual way to make an update.
///
/// The first write makes a copy of the row (of its pending content when the transaction already
/// updates it); the live row is untouched until the transaction is applied. commit(), or the
/// destructor, hands over the columns that really differ: a write of the present value is no
/// change, and without changes the transaction gets nothing. A row that is not in the table yet,
/// because the same transaction inserts it, is written in place at commit.
///
/// Lifetime: within that of the transaction. Threads: as the transaction. Errors: a failing cell
/// assignment throws (see Field) and leaves the cell as it was.
///
///     RecordUpdater quote(changes, row);
///     quote.data(bid) = bidPrice;
///     quote.setNull(ask);
///     quote.commit();
class LIVETABLE_EXPORT RecordUpdater
{
public:
    /// For one row of the transaction's table. Costs nothing until a cell is written.
    RecordUpdater(RecordsTrans& into, const Record& record);
    /// Commits; memory running out at that point loses the update with a warning.
    ~RecordUpdater();

    /// The row being updated.
    const Record& record() const { return live; }
    /// The cell to write. Good until commit(). An unknown column, or a null or detached row, gives
    /// an undefined NULL cell.
    Field data(int column);
    Field data(const QString& column);
    /// The cell as it will be: the pending content, else the live row's.
    Field constData(int column) const;
    /// Makes the cell NULL, as part of the transaction; by name: data(name).setNull().
    void setNull(int column);
    /// Whether a written cell now differs from what constData() gave at the start.
    bool isChanged() const;
    /// Hands the changed columns to the transaction. The updater may be used again after.
    void commit();

private:
    Q_DISABLE_COPY(RecordUpdater)
    struct Columns;
    Record base() const;
    Columns* written();

    RecordsTrans& transaction;
    Record live;
    Record content;
    std::unique_ptr<Columns> columns;
};
