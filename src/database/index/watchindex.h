// SPDX-License-Identifier: MIT
#pragma once

#include "index/index.h"

#include <QHash>
#include <QPointer>

/// Collects which records of a table were added, removed and updated, for a host that polls.
///
/// The host reads the three lists and then calls clear(). Until then they grow without bound and
/// keep their rows alive, removed ones too; adding a column to the table empties them.
///
/// Attachment: from construction to destruction; the table may die first, which empties the lists.
/// Threads: see Index; a reader on another thread than the writer holds Table::lock from the first
/// list to clear(). Cost: constant per change, except that a record that comes back is searched for
/// in removed().
///
///     WatchIndex watch(&quotes);
///     ...
///     for (const Record& r : watch.updated()) repaint(r);
///     watch.clear();
class LIVETABLE_EXPORT WatchIndex : public Index
{
public:
    /// Attaches to the table; collects from here on.
    explicit WatchIndex(Table* table);
    ~WatchIndex() override;

    /// Records added since the last clear(), in order of arrival. One that was removed after that
    /// is still here.
    const QList<Record>& added() const { return arrivals; }
    /// Records removed since the last clear() and not added again.
    const QList<Record>& removed() const { return departures; }
    /// Records updated, or removed and added again, since the last clear(): once for each time.
    const QList<Record>& updated() const { return updates; }

    /// The watched table; null once it has been destroyed.
    Table* table() const;

    /// Both empty the three lists.
    void clear() override;
    void build() override;

    void add(const Record& record) override;
    void remove(const Record& record, int position) override;
    void update(const Record& record, int firstColumn, int lastColumn, int position) override;
    /// True.
    bool filter(const Record& record) const override;
    /// Whether the record is in added() or updated().
    bool contains(const Record& record) const override;
    QString getClassName() const override;
    QString verify() const override;

private:
    QPointer<Table> watched;
    QList<Record> arrivals;
    QList<Record> departures;
    QList<Record> updates;
    QHash<Record, int> departed; // how often each record is in departures
};
