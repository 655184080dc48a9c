// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "table/table.h"

namespace LiveTable {

/// Table::beginUpdate() and endUpdate(), also when an exception passes.
class UpdateBracket
{
public:
    explicit UpdateBracket(Table* updated)
        : table(updated)
    {
        table->beginUpdate();
    }
    ~UpdateBracket()
    {
        if (!table)
            return;
        try {
            table->endUpdate();
        } catch (...) { // another one is on its way
        }
    }
    Q_DISABLE_COPY(UpdateBracket)

    void end()
    {
        Table* const updated = table;
        table = nullptr;
        updated->endUpdate();
    }

private:
    Table* table;
};

/// Table::lock() and unlock().
class TableLock
{
public:
    explicit TableLock(Table* locked)
        : table(locked)
    {
        table->lock();
    }
    ~TableLock() { table->unlock(); }
    Q_DISABLE_COPY(TableLock)

private:
    Table* const table;
};

} // namespace LiveTable
