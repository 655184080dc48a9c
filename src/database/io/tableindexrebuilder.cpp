// SPDX-License-Identifier: MIT
#include "io/tableindexrebuilder.h"

#include "index/index.h"
#include "join/tablejoin.h"
#include "table/table.h"

#include <QtDebug>

namespace {

// A host's function may throw: the others have their turn all the same.
template <typename Act>
void forEach(const QList<Index*>& indexes, const char* failure, Act act)
{
    for (Index* index : indexes) {
        try {
            act(index);
        } catch (...) {
            qWarning() << failure << index->getClassName();
        }
    }
}

void buildAll(const QList<Index*>& indexes)
{
    forEach(indexes, "TableIndexRebuilder : an index could not be built:", [](Index* index) {
        index->build();
    });
}

} // namespace

TableIndexRebuilder::TableIndexRebuilder(Table* indexed)
    : table(indexed)
{
    const QList<Index*> indexes = table->indexes();
    for (Index* index : indexes) {
        saved.append(qMakePair(index, table->indexName(index)));
        table->removeIndex(index);
    }
    detectIndexGroup(indexes);
    for (const QList<Index*>& group : {plainGroup, dependentGroup, joinGroup})
        forEach(group, "TableIndexRebuilder : an index could not be emptied:", [](Index* index) {
            index->clear();
        });
}

TableIndexRebuilder::~TableIndexRebuilder()
{
    buildAll(joinGroup);
    buildAll(dependentGroup);
    buildAll(plainGroup);
    for (const auto& [index, name] : qAsConst(saved)) {
        table->addIndex(index);
        if (!name.isEmpty())
            table->setIndexName(name, index);
    }
}

void TableIndexRebuilder::detectIndexGroup(const QList<Index*>& indexes)
{
    for (Index* index : indexes) {
        if (TableJoin::isJoinIndex(index))
            joinGroup.append(index);
        else if (index->getClassName().startsWith(QLatin1String("IndexDepend")))
            dependentGroup.append(index);
        else
            plainGroup.append(index);
    }
}
