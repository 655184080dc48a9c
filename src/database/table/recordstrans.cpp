// SPDX-License-Identifier: MIT
#include "table/recordstrans_p.h"

#include "table/table_p.h"

#include <algorithm>
#include <new>

using LiveTable::ColumnSet;
using LiveTable::RowPool;

RecordsTrans::RecordsTrans(Table* table)
    : d(new RecordsTransPrivate)
{
    d->table = table;
}

RecordsTrans::~RecordsTrans() = default;

RecordsTrans::RecordsTrans(RecordsTrans&& other) noexcept(false)
    : RecordsTrans(other.table())
{
    swap(other);
}

RecordsTrans& RecordsTrans::operator=(RecordsTrans&& other) noexcept(false)
{
    RecordsTrans moved(std::move(other));
    swap(moved);
    return *this;
}

// --- entries ---

RecordsTransPrivate::Entry* RecordsTransPrivate::find(const Record& record)
{
    if (places.isEmpty()) {
        for (Entry& entry : entries)
            if (entry.live == record)
                return &entry;
        return nullptr;
    }
    const auto place = places.constFind(record);
    return place == places.cend() ? nullptr : &entries[static_cast<size_t>(*place)];
}

RecordsTransPrivate::Entry& RecordsTransPrivate::add(const Record& record, int operation)
{
    entries.push_back(Entry{record, Record(), ColumnSet(), operation});
    if (entries.size() == ScanLimit + 1) {
        for (size_t i = 0; i < entries.size(); ++i)
            places.insert(entries[i].live, static_cast<int>(i));
    } else if (entries.size() > ScanLimit) {
        places.insert(record, static_cast<int>(entries.size()) - 1);
    }
    return entries.back();
}

bool RecordsTransPrivate::accepts(const Record& record)
{
    Table* owner = record.table();
    if (!owner)
        return false;
    if (!table)
        table = owner;
    return owner == table;
}

void RecordsTransPrivate::widen(int from, int to)
{
    first = std::min(first, from);
    last = std::max(last, to);
}

void RecordsTransPrivate::update(const Record& live, const Record& content,
                                 const ColumnSet& columns, int from, int to, bool adopt)
{
    Entry* entry = find(live);
    if (entry && entry->operation == RecordsTrans::Remove)
        return;
    if (entry && entry->operation == RecordsTrans::Insert) {
        if (RowPool::tag(live.row()) == 0) {
            // The row is in no index yet: its cells may be written at once.
            for (int column = from; column <= to; ++column)
                if (columns.contains(column))
                    Record(live).copy(content, column, column);
            return;
        }
        entry->operation = RecordsTrans::Update; // of a row that is in the table after all
    }
    Record target = entry ? entry->content : Record();
    const bool adopted = target.isNull() && adopt;
    if (target.isNull())
        target = adopt ? content : live.clone();
    if (target.isNull())
        throw std::bad_alloc();
    if (!entry)
        entry = &add(live, RecordsTrans::Update);
    entry->content = target;
    for (int column = from; column <= to; ++column) {
        if (!columns.contains(column))
            continue;
        if (!adopted)
            entry->content.copy(content, column, column);
        entry->columns.insert(column);
    }
    widen(from, to);
}

QList<Record> RecordsTransPrivate::rows(int operation) const
{
    QList<Record> found;
    for (const Entry& entry : entries)
        if (entry.operation == operation)
            found.append(entry.live);
    return found;
}

// --- operations ---

void RecordsTrans::insert(const Record& record)
{
    if (!d->accepts(record))
        return;
    if (RecordsTransPrivate::Entry* entry = d->find(record)) {
        entry->operation = Insert;
        entry->content = Record();
        entry->columns = ColumnSet();
    } else {
        d->add(record, Insert);
    }
}

void RecordsTrans::remove(const Record& record)
{
    if (!d->accepts(record))
        return;
    if (RecordsTransPrivate::Entry* entry = d->find(record)) {
        entry->operation = Remove;
        entry->content = Record();
        entry->columns = ColumnSet();
    } else {
        d->add(record, Remove);
    }
}

void RecordsTrans::update(const Record& live, const Record& content, int first, int last)
{
    if (!d->accepts(live) || content.table() != live.table())
        return;
    const int edge = d->table->columnCount() - 1;
    first = std::max(first, 0);
    last = last < 0 ? edge : std::min(last, edge);
    ColumnSet columns;
    for (int column = first; column <= last; ++column)
        columns.insert(column);
    d->update(live, content, columns, first, last, false);
}

void RecordsTrans::merge(const RecordsTrans& other)
{
    if (&other == this)
        return;
    for (const RecordsTransPrivate::Entry& entry : other.d->entries) {
        if (entry.operation == Insert)
            insert(entry.live);
        else if (entry.operation == Remove)
            remove(entry.live);
        else if (d->accepts(entry.live))
            d->update(entry.live, entry.content, entry.columns, std::max(other.firstColumn(), 0),
                      other.lastColumn(), false);
    }
    if (!other.isEmpty() && other.lastColumn() >= other.firstColumn())
        d->widen(other.firstColumn(), other.lastColumn());
}

void RecordsTrans::merge(const QList<Record>& removed, const QList<Record>& updated, int first,
                         int last, const QList<Record>& inserted, const QList<Record>& changed)
{
    for (const Record& record : removed)
        remove(record);
    for (int i = 0; i < updated.size(); ++i) {
        if (i < changed.size())
            update(updated.at(i), changed.at(i), first, last);
        else if (d->accepts(updated.at(i))) // no content: told to the indexes, nothing is written
            d->update(updated.at(i), updated.at(i).clone(), ColumnSet(), std::max(first, 0),
                      last < 0 ? d->table->columnCount() - 1 : last, true);
    }
    for (const Record& record : inserted)
        insert(record);
}

// Before it is applied, each new content gets the live row's present cells wherever the
// transaction did not mean to write: other transactions may have changed them meanwhile.
void RecordsTrans::rebase()
{
    if (d->last < d->first)
        return;
    const TablePrivate* table = TablePrivate::get(d->table);
    for (RecordsTransPrivate::Entry& entry : d->entries) {
        if (entry.content.isNull() || entry.live.table() != d->table)
            continue;
        for (int column = d->first; column <= d->last; ++column) {
            const int first = column;
            while (column <= d->last && !entry.columns.contains(column))
                ++column;
            if (column > first)
                table->cells(first, column - 1).copy(entry.content.row(), entry.live.row());
        }
    }
}

// --- reading ---

bool RecordsTrans::isEmpty() const
{
    return d->entries.empty();
}

int RecordsTrans::count() const
{
    return static_cast<int>(d->entries.size());
}

void RecordsTrans::clear()
{
    // The rows are released last: the transaction is empty by then, whoever looks.
    std::vector<RecordsTransPrivate::Entry> old;
    old.swap(d->entries);
    d->places.clear();
    d->first = RecordsTransPrivate::NoFirst;
    d->last = -1;
    old.clear();
    if (d->entries.empty() && old.capacity() <= 4 * RecordsTransPrivate::ScanLimit)
        d->entries.swap(old); // a little room is kept for the next entries
}

void RecordsTrans::swap(RecordsTrans& other) noexcept
{
    d.swap(other.d);
}

Table* RecordsTrans::table() const
{
    return d->table;
}

QList<Record> RecordsTrans::removed() const
{
    return d->rows(Remove);
}

QList<Record> RecordsTrans::updated() const
{
    return d->rows(Update);
}

QList<Record> RecordsTrans::changed() const
{
    QList<Record> contents;
    for (const RecordsTransPrivate::Entry& entry : d->entries)
        if (entry.operation == Update)
            contents.append(entry.content);
    return contents;
}

QList<Record> RecordsTrans::inserted() const
{
    return d->rows(Insert);
}

int RecordsTrans::firstColumn() const
{
    return d->first == RecordsTransPrivate::NoFirst ? 0 : d->first;
}

int RecordsTrans::lastColumn() const
{
    return d->last;
}

void RecordsTrans::setColumns(int first, int last)
{
    d->first = first;
    d->last = last;
}

int RecordsTrans::operation(const Record& record) const
{
    const RecordsTransPrivate::Entry* entry = d->find(record);
    return entry ? entry->operation : static_cast<int>(None);
}

Record RecordsTrans::content(const Record& record) const
{
    const RecordsTransPrivate::Entry* entry = d->find(record);
    return entry ? entry->content : Record();
}

void RecordsTrans::execute()
{
    if (isEmpty())
        return;
    if (lastColumn() < firstColumn())
        setColumns(0, d->table->columnCount() - 1);
    d->table->process(*this);
}
