// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "join/joindemand_p.h"
#include "join/keylookup_p.h"
#include "join/tablejoindep.h"
#include "join/tablejoinmain.h"

#include <QPointer>

#include <memory>
#include <vector>

namespace LiveTable {
/// Whether [first, last], -1 for the first or the last column, holds the column.
inline bool isInRange(int column, int first, int last)
{
    return column >= first && (last < 0 || column <= last);
}
} // namespace LiveTable

class TableJoinMainPrivate
{
public:
    TableJoinMainPrivate(TableJoinMain* index, IndexJoinMain* main,
                         const QVector<QSharedPointer<IndexJoinDep>>& dependents);

    bool isLive() const { return shared && table && table->masterIndex(); }
    /// Whether an update of these columns can make joined cells wrong.
    bool isTouched(int firstColumn, int lastColumn) const;
    /// Rises with every change of a dependent.
    quint64 version() const;
    bool hasAbsentUpdates() const;
    void followDemand(const QList<Record>& removed, const QList<Record>& updated,
                      const QList<Record>& inserted, bool areKeysKnown);

    TableJoinMain* const q;
    IndexJoinMain* shared; // null once the join is gone
    const QVector<QSharedPointer<IndexJoinDep>> deps;
    const QPointer<Table> table;
    const QVector<int> keyColumns; // ascending
    LiveTable::KeyLookup rows;     // of the main table, by key
    std::unique_ptr<JoinDemandKeys> demand;

    // A transaction on its way. `late`: rows to look at once it is applied, because their joined
    // cells could not be set before.
    QList<Record> late;
    QList<Record> oldKeys; // rows as they were before their key changed, for the demand
    bool isAnnounced = false;
    bool isOwn = false;    // it comes from the join itself: its contents are right
    bool isListed = false; // process() is called for a single row, of which the rows know already
    bool hasUnknownKeys = false; // the old key of some row is lost
    quint64 seenVersion = 0;
    /// Another index of the main table threw and stopped a transaction of the join's: at the next
    /// notification all rows are looked at.
    bool isDamaged = false;
};

class TableJoinDepPrivate
{
public:
    TableJoinDepPrivate(TableJoinDep* index, IndexJoinDep* dep);

    bool isLive() const
    {
        return shared && main && main->d->isLive() && table && table->masterIndex();
    }
    /// Called by the main index when it is made.
    void connectTo(TableJoinMain* mainIndex);
    bool isKeyTouched(int firstColumn, int lastColumn) const;
    bool isTouched(int firstColumn, int lastColumn) const;
    /// The dependent row that a main row shows, `except` left out; null without one.
    Record rowFor(const Record& mainRow, const Record& except);
    /// Looks at the main rows with the keys of `present` and with those that `left` had; `leftKeys`
    /// holds the latter, position for position.
    void spread(const QList<Record>& present, const QList<Record>& left,
                const QList<Record>& leftKeys);
    /// Looks at all main rows.
    void spreadToAll();
    void closeBracket();

    TableJoinDep* const q;
    IndexJoinDep* shared; // null once the join is gone
    TableJoinMain* main = nullptr;
    const QPointer<Table> table;
    LiveTable::KeyLookup rows;       // of the dependent table, by key
    LiveTable::KeyProbe toDependent; // finds them by the key of a main row
    LiveTable::KeyProbe toMain;      // finds main rows by the key of a dependent one
    bool isSearchable = true;        // else both ways are a look through all
    quint64 version = 0;

    // A transaction on its way: rows that change their key, and what they hold before.
    QList<Record> moved;
    QList<Record> oldKeys;
    bool isAnnounced = false;
    bool hasUnknownKeys = false; // the old key of some row is lost

    bool isUpdatingInPlace = false;
    bool holdsBracket = false; // of the main table
    // Whether it hangs on its table, as far as the table tells. While it is taken off it, clear()
    // is the beginning of building anew.
    bool wasAttached = false;
    bool isAttached = false;
    QObject listener;
};
