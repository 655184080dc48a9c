// SPDX-License-Identifier: MIT
#include "index/indexvector.h"

#include "index/masterindex.h"
#include "table/table.h"

#include <QSet>

#include <algorithm>
#include <mutex>

IndexVector* IndexVector::sortIndex = nullptr;

IndexVector::IndexVector(Table* table)
    : viewed(table)
{
    if (viewed)
        viewed->addIndex(this);
}

IndexVector::~IndexVector()
{
    if (sortIndex == this)
        sortIndex = nullptr;
    if (viewed)
        viewed->removeIndex(this);
}

Table* IndexVector::table() const
{
    return viewed;
}

void IndexVector::clear()
{
    list.clear();
    isDamaged = false;
}

void IndexVector::build()
{
    if (!viewed)
        return;
    const std::lock_guard<Table> lock(*viewed);
    const MasterIndex* master = viewed->masterIndex();
    if (!master)
        return;
    const QVector<Record> before = list;
    try {
        for (const Record& record : *master) {
            if (filter(record))
                add(record);
        }
    } catch (...) {
        list = before;
        isDamaged = true;
        throw;
    }
}

void IndexVector::add(const Record& record)
{
    if (repair() && list.contains(record))
        return;
    try {
        const auto greater = std::find_if(list.cbegin(), list.cend(), [&](const Record& element) {
            return compare(element, record) > 0;
        });
        list.insert(int(greater - list.cbegin()), record);
    } catch (...) {
        isDamaged = true;
        throw;
    }
}

void IndexVector::remove(const Record& record, int)
{
    repair();
    const int position = list.lastIndexOf(record);
    if (position != -1)
        list.remove(position);
}

void IndexVector::update(const Record& record, int firstColumn, int lastColumn, int position)
{
    try {
        Index::update(record, firstColumn, lastColumn, position);
    } catch (...) {
        isDamaged = true;
        throw;
    }
}

void IndexVector::process(const QList<Record>& removed, const QList<Record>& updated,
                          int firstColumn, int lastColumn, const QList<Record>& inserted)
{
    // The table's master index is told first, so a view built now knows the transaction already.
    if (repair()) {
        Index::process({}, {}, firstColumn, lastColumn, {});
        return;
    }
    const QSet<Record> moving(updated.cbegin(), updated.cend());
    list.erase(std::remove_if(list.begin(), list.end(),
                              [&](const Record& record) { return moving.contains(record); }),
               list.end());
    try {
        Index::process(removed, updated, firstColumn, lastColumn, inserted);
    } catch (...) {
        isDamaged = true;
        throw;
    }
}

bool IndexVector::filter(const Record&) const
{
    return true;
}

bool IndexVector::contains(const Record& record) const
{
    return search(record, -1) != -1;
}

QString IndexVector::getClassName() const
{
    return QStringLiteral("IndexVector");
}

int IndexVector::search(const Record& key, int after) const
{
    if (key.isNull())
        return -1;
    for (int i = std::max(after, -1) + 1; i < list.size(); ++i) {
        if (compare(key, list.at(i)) == 0)
            return i;
    }
    return -1;
}

void IndexVector::resort()
{
    sortIndex = this;
    // A copy is sorted, because a sort that is left by an exception loses elements.
    QVector<Record> sorted = list;
    std::stable_sort(sorted.begin(), sorted.end(), &IndexVector::lessThan);
    list.swap(sorted);
}

bool IndexVector::lessThan(const Record& a, const Record& b)
{
    return sortIndex && sortIndex->compare(a, b) < 0;
}

// Builds the view anew if something has thrown half-way; true if that was the case.
bool IndexVector::repair()
{
    if (!isDamaged)
        return false;
    isDamaged = false;
    try {
        rebuild();
    } catch (...) {
        isDamaged = true;
        throw;
    }
    return true;
}
