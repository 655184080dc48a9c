// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "join/tablejoin_p.h"
#include "table/roworder_p.h"
#include "table/table_p.h"
#include "table/updatebracket_p.h"

#include <QSet>

#include <limits>
#include <optional>
#include <vector>

/// Brings joined cells of main rows up to date: look() at rows, then send() what differs as one
/// transaction; or write() rows that no index holds. Lives for one call, holds the main table's
/// lock.
///
/// Where no index would hear of such a transaction, because all are the library's own and none
/// reads these columns, look() writes the cells at once: then a row costs little more than its
/// memory.
///
/// What a main row shows depends on its key alone, so rows of one key share one row of contents,
/// and rows should come by key.
class MainFill
{
public:
    /// The columns of one dependent, as if its row `left` were not there.
    MainFill(TableJoinDepPrivate* dependent, const Record& left);
    /// The columns of all dependents.
    explicit MainFill(TableJoinMainPrivate* joinMain);
    /// From here on as if the dependents had no rows.
    void clearAll();

    void look(const Record& row);
    /// Looks at a run of the index; with `isOneKey` all of it has the same key.
    void lookAt(const IndexSort* index, LiveTable::KeyRun run, bool isOneKey);
    /// Applies what look() found.
    void send();
    /// Sets the joined cells of a row in place.
    void write(const Record& row);
    bool isUnheard() const { return unheard; }
    /// A main row with the joined cells that a row of this key is to have, and its key.
    const Record& contentFor(const Record& keyRow);
    /// The joined columns in question, ascending.
    const std::vector<int>& joinedColumns() const { return numbers; }

private:
    MainFill(TableJoinMainPrivate* joinMain, TableJoinDepPrivate* dependent);
    Q_DISABLE_COPY(MainFill)
    bool hasKeyOf(const Record& row) const;
    bool hears(const Index* index) const;
    bool areAllDeaf() const;
    void compute(const Record& keyRow);
    bool findDifference(const Record& row);
    bool isLeaving(const Record& row)
    {
        return LiveTable::RowPool::tag(row.row()) == 0 || (someLeave && isAmongLeaving(row));
    }
    bool isAmongLeaving(const Record& row);
    void take(const Record& row);
    template <typename Visit>
    void forEach(const IndexSort* index, LiveTable::KeyRun run, Visit visit) const;

    TableJoinMainPrivate* const main;
    TableJoinDepPrivate* const only; // null: all dependents
    Record except;
    Table* const table;
    const LiveTable::TableLock lock;
    RecordsTrans pieces; // the updates, where the columns are not one run

    std::vector<int> numbers;
    std::vector<const TableColumnDef*> defs;
    LiveTable::CellRange cells; // where isOneRun
    LiveTable::RowOrder keyOrder;

    Record content; // for the key looked at last
    Record known;   // a row whose differences from the contents have been noted
    QList<Record> updated;
    QList<Record> changed;
    std::optional<QSet<Record>> leaving;
    int firstChanged = std::numeric_limits<int>::max();
    int lastChanged = -1;
    bool isClearing = false;
    bool isOneRun = true; // the columns follow each other, so a range of them holds nothing else
    bool unheard = false;
    bool isContentUsed = false;
    bool someLeave;
};
