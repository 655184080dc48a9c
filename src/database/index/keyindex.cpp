// SPDX-License-Identifier: MIT
#include "index/keyindex.h"

#include "index/masterindex.h"
#include "table/table_p.h"

#include <QSet>

#include <algorithm>
#include <new>
#include <utility>

namespace {

int numberColumn(const Table* table, const QString& name)
{
    const int column = table ? table->columnIndex(name) : -1;
    const TableColumnDef* def = table ? table->columnDef(column) : nullptr;
    if (!def || (def->type != FieldType::Integer && def->type != FieldType::Integer64 &&
                 def->type != FieldType::DateTime))
        throw QStringLiteral("Column '%1' not found to create index.").arg(name);
    return column;
}

} // namespace

KeyIndex::KeyIndex(Table* table, const QString& columnName)
    : viewed(table)
    , column(numberColumn(table, columnName))
{
    reset();
    KeyIndex::build();
    table->addIndex(this);
}

KeyIndex::~KeyIndex()
{
    if (viewed)
        viewed->removeIndex(this);
}

Table* KeyIndex::table() const
{
    return viewed;
}

// --- the hash table: linear steps from a key's home, no marks for what was removed ---

void KeyIndex::reset()
{
    try {
        std::vector<Slot>(2).swap(places);
    } catch (const std::bad_alloc&) {
        if (places.empty())
            throw;
        places.erase(places.begin() + 2, places.end());
        places[0].row = places[1].row = Record();
    }
    mask = 1;
    shift = 63;
    used = 0;
}

void KeyIndex::grow(size_t rows)
{
    int bits = 64 - shift;
    while ((size_t(1) << bits) * 2 / 3 < rows)
        ++bits;
    if (bits == 64 - shift)
        return;
    std::vector<Slot> old(size_t(1) << bits);
    old.swap(places);
    mask = places.size() - 1;
    shift = 64 - bits;
    for (Slot& slot : old) {
        if (slot.row.isNull())
            continue;
        size_t i = home(slot.key);
        while (!places[i].row.isNull())
            i = (i + 1) & mask;
        places[i] = std::move(slot);
    }
}

void KeyIndex::insert(const Record& record)
{
    grow(used + 1);
    const qint64 key = keyOf(record);
    size_t i = home(key);
    for (; !places[i].row.isNull(); i = (i + 1) & mask)
        if (places[i].row == record)
            return;
    places[i] = {key, record};
    ++used;
}

// What stands behind moves up, unless that would take it before its home.
void KeyIndex::take(size_t slot) noexcept
{
    --used;
    const Record gone = std::move(places[slot].row); // released when all is in its place
    size_t hole = slot;
    for (size_t i = (slot + 1) & mask; !places[i].row.isNull(); i = (i + 1) & mask) {
        const size_t distance = (i - home(places[i].key)) & mask;
        if (distance < ((i - hole) & mask))
            continue;
        places[hole] = std::move(places[i]);
        hole = i;
    }
}

// By its number; and where that was written without telling, by a look at all.
void KeyIndex::takeRow(qint64 key, const Record& row) noexcept
{
    for (size_t i = home(key); !places[i].row.isNull(); i = (i + 1) & mask)
        if (places[i].row == row)
            return take(i);
    const auto place = std::find_if(places.cbegin(), places.cend(),
                                    [&](const Slot& slot) { return slot.row == row; });
    if (place != places.cend())
        take(static_cast<size_t>(place - places.cbegin()));
}

// --- as an Index ---

void KeyIndex::clear()
{
    reset();
    leaving.clear();
    isDamaged = false;
}

void KeyIndex::build()
{
    const MasterIndex* master = viewed ? viewed->masterIndex() : nullptr;
    if (!master)
        return;
    isDamaged = true; // until all is done
    grow(static_cast<size_t>(master->count()));
    for (const Record& record : *master)
        if (isNumbered(record))
            insert(record);
    isDamaged = false;
}

bool KeyIndex::heal()
{
    if (!isDamaged)
        return false;
    KeyIndex::clear();
    KeyIndex::build();
    return true;
}

bool KeyIndex::touches(int firstColumn, int lastColumn) const noexcept
{
    return firstColumn <= column && (lastColumn < 0 || lastColumn >= column);
}

qint64 KeyIndex::keyOf(const Record& record) const
{
    const Field cell = record.data(column);
    return cell.type() == FieldType::DateTime ? cell.toDatetime().toMSecsSinceEpoch()
                                              : cell.toInteger64();
}

bool KeyIndex::isNumbered(const Record& record) const
{
    return !record.data(column).isNull();
}

// Whether cells of the row were changed in place, perhaps the number, and nobody has told of it
// yet.
bool KeyIndex::isUntold(const Record& record) const
{
    const TablePrivate* table = viewed ? TablePrivate::get(viewed.data()) : nullptr;
    return table &&
           (table->untold.contains(record.row()) || table->untoldNow.contains(record.row()));
}

// While damaged it wants to hear of any row.
bool KeyIndex::filter(const Record& record) const
{
    return isDamaged || isNumbered(record);
}

bool KeyIndex::contains(const Record& record) const
{
    if (record.isNull() || record.table() != viewed.data() || !isNumbered(record))
        return false;
    for (size_t i = home(keyOf(record)); !places[i].row.isNull(); i = (i + 1) & mask)
        if (places[i].row == record)
            return true;
    return false;
}

void KeyIndex::add(const Record& record)
{
    if (heal() || !isNumbered(record))
        return;
    isDamaged = true;
    insert(record);
    isDamaged = false;
}

void KeyIndex::remove(const Record& record, int)
{
    heal();
    if (isNumbered(record) || isUntold(record))
        takeRow(keyOf(record), record);
}

void KeyIndex::preprocess(const QList<Record>& removed, const QList<Record>& updated,
                          int firstColumn, int lastColumn, const QList<Record>& inserted,
                          const QList<Record>&)
{
    leaving.clear();
    const auto note = [this](const Record& record) {
        if (isNumbered(record) || isUntold(record))
            leaving.push_back({keyOf(record), record});
    };
    std::for_each(removed.cbegin(), removed.cend(), note);
    const bool isTouched = touches(firstColumn, lastColumn);
    for (const Record& record : updated)
        if (isTouched || isUntold(record))
            note(record);
    grow(used + static_cast<size_t>(inserted.size() + updated.size()));
}

void KeyIndex::process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                       int lastColumn, const QList<Record>& inserted)
{
    restartTimer();
    if (heal()) {
        addElapsed();
        return;
    }
    isDamaged = true; // until all is done
    for (const Slot& slot : leaving)
        takeRow(slot.key, slot.row);
    leaving.clear();
    const auto put = [this](const Record& record) {
        if (isNumbered(record))
            insert(record);
    };
    // An update may also bring a row in.
    if (touches(firstColumn, lastColumn) || used < static_cast<size_t>(viewed->rowCount())) {
        QSet<Record> gone;
        if (!updated.isEmpty())
            gone = QSet<Record>(removed.cbegin(), removed.cend());
        for (const Record& record : updated)
            if (!gone.contains(record))
                put(record);
    }
    std::for_each(inserted.cbegin(), inserted.cend(), put);
    isDamaged = false;
    addElapsed();
}

// Its old number is gone.
void KeyIndex::update(const Record& record, int firstColumn, int lastColumn, int)
{
    if (touches(firstColumn, lastColumn))
        takeRow(keyOf(record), record);
    add(record);
}

QString KeyIndex::getClassName() const
{
    return QStringLiteral("KeyIndex");
}
