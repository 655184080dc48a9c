// SPDX-License-Identifier: MIT
// What tests of tables and indexes share.
#pragma once

#include "index/indexvector.h"
#include "index/masterindex.h"
#include "table/table.h"

#include <functional>

/// A new row with these numbers in its first cells.
template <class... Cells>
Record row(const Table& table, Cells... cells)
{
    const Record record(&table);
    int column = 0;
    ((record.data(column++) = cells), ...);
    return record;
}

/// A table of the Integer columns named, keyed by the first of them or kept in order of arrival.
struct IntegerTable : Table
{
    IntegerTable(const QString& title, const QStringList& columns, int keys = 0)
        : Table(title)
    {
        for (const QString& column : columns)
            addColumn(column, FieldType::Integer);
        if (keys > 0)
            setMasterIndex(new MasterIndex_Column_Pure(this, columns.mid(0, keys)));
    }
};

/// In the order of the first column.
struct KeyVector : IndexVector
{
    using IndexVector::IndexVector;
    int compare(const Record& a, const Record& b) const override
    {
        return a.data(0).compare(b.data(0));
    }
};

/// Writes down every notification, and can act from inside one.
class Journal : public Index
{
public:
    explicit Journal(QStringList& lines, QString prefix = QString(), Table* watched = nullptr)
        : log(lines)
        , name(std::move(prefix))
        , table(watched)
    {
        if (table)
            table->addIndex(this);
    }
    ~Journal() override
    {
        if (table)
            table->removeIndex(this);
    }
    void clear() override { note("clear"); }
    void build() override { note("build"); }
    void add(const Record& r) override { note("add", {r}); }
    void remove(const Record& r, int position) override
    {
        note(QString("remove %1 :").arg(position), {r});
    }
    void update(const Record& r, int first, int last, int position) override
    {
        note(QString("update %1-%2 %3 :").arg(first).arg(last).arg(position), {r});
    }
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                    const QList<Record>& inserted, const QList<Record>& changes) override
    {
        note("pre" + sizes(removed, updated, inserted, first, last), updated);
        note("new", changes);
    }
    void process(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                 const QList<Record>& inserted) override
    {
        note("process" + sizes(removed, updated, inserted, first, last), updated);
    }
    bool filter(const Record&) const override
    {
        if (always)
            always();
        return true;
    }
    bool contains(const Record&) const override { return false; }
    void beginUpdate() override { note("begin"); }
    void endUpdate() override { note("end"); }
    void dependentBeginUpdate(Table*) override { note("dependent begin"); }
    void dependentEndUpdate(Table*) override { note("dependent end"); }
    QString getClassName() const override { return name; }

    /// Called at the next notification that begins so, and then no more; it may delete the journal.
    void at(const char* beginning, std::function<void()> act)
    {
        awaited = beginning;
        action = std::move(act);
    }

    std::function<void()> always; ///< called by every notification, and by filter()

private:
    QString sizes(const QList<Record>& removed, const QList<Record>& updated,
                  const QList<Record>& inserted, int first, int last) const
    {
        return QString(" %1 %2 %3 %4-%5 state %6 :")
            .arg(removed.size())
            .arg(updated.size())
            .arg(inserted.size())
            .arg(first)
            .arg(last)
            .arg(table ? table->transactionState() : -1);
    }
    void note(const QString& what, const QList<Record>& records = {})
    {
        QString line = name.isEmpty() ? what : name + ' ' + what;
        for (const Record& r : records)
            line += ' ' + r.data(0).toString();
        log.append(line);
        if (always)
            always();
        if (action && what.startsWith(awaited))
            std::exchange(action, nullptr)();
    }

    QStringList& log;
    const QString name;
    Table* const table;
    QString awaited;
    std::function<void()> action;
};
