// SPDX-License-Identifier: MIT
#include "index/indexdependbase.h"

#include "index/index.h"

#include <exception>

IndexDependBase::IndexDependBase(Index* index)
    : source(index)
{}

IndexDependBase::~IndexDependBase() = default;

void IndexDependBase::addDependentIndex(Index* index)
{
    dependents.append(index);
}

void IndexDependBase::removeDependentIndex(Index* index)
{
    dependents.removeOne(index);
}

QList<Index*> IndexDependBase::dependentIndexes() const
{
    return dependents;
}

// Walks a copy, since a dependent may add or remove some, and skips those that have been removed
// meanwhile, since they may be dead.
template <typename Notify>
void IndexDependBase::tellAll(Notify notify)
{
    std::exception_ptr firstError;
    const QList<Index*> present = dependents;
    for (Index* dependent : present) {
        if (!dependents.contains(dependent))
            continue;
        try {
            notify(dependent);
        } catch (...) {
            if (!firstError)
                firstError = std::current_exception();
        }
    }
    if (firstError)
        std::rethrow_exception(firstError);
}

void IndexDependBase::clear()
{
    tellAll([](Index* dependent) { dependent->clear(); });
}

void IndexDependBase::build()
{
    tellAll([](Index* dependent) { dependent->build(); });
}

void IndexDependBase::add(const Record& record)
{
    tellAll([&](Index* dependent) { dependent->add(record); });
}

void IndexDependBase::remove(const Record& record, int position)
{
    tellAll([&](Index* dependent) { dependent->remove(record, position); });
}

void IndexDependBase::update(const Record& record, int firstColumn, int lastColumn, int position)
{
    tellAll(
        [&](Index* dependent) { dependent->update(record, firstColumn, lastColumn, position); });
}

void IndexDependBase::preprocess(const QList<Record>& removed, const QList<Record>& updated,
                                 int firstColumn, int lastColumn, const QList<Record>& inserted,
                                 const QList<Record>& changes)
{
    const QList<Index*> present = dependents;
    for (Index* dependent : present) {
        if (dependents.contains(dependent))
            dependent->preprocess(removed, updated, firstColumn, lastColumn, inserted, changes);
    }
}

void IndexDependBase::process(const QList<Record>& removed, const QList<Record>& updated,
                              int firstColumn, int lastColumn, const QList<Record>& inserted)
{
    tellAll([&](Index* dependent) {
        dependent->process(removed, updated, firstColumn, lastColumn, inserted);
    });
}
