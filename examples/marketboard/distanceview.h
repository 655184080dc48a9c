// SPDX-License-Identifier: MIT
#pragma once

#include "index/indexsort.h"

/// Options by the distance of their strike from the middle of the future they are on, the nearest
/// first; those whose future has no bid or no ask come last. An order over joined columns, written
/// as a host writes one: the key spares most looks into the rows.
class DistanceView : public IndexSort
{
public:
    explicit DistanceView(Table* options);

    int compare(const Record& a, const Record& b) const override;
    int sortKeyWords() const override { return 1; }
    SortKey sortKey(const Record& record) const override;
    bool isAffected(int firstColumn, int lastColumn) const override;

private:
    static quint64 distance(const Record& option);
};
