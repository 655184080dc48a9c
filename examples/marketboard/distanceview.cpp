// SPDX-License-Identifier: MIT
#include "distanceview.h"

#include "board.h"

#include <limits>

DistanceView::DistanceView(Table* options)
    : IndexSort(options, true)
{
    build();
}

// Twice the distance, so that the middle is exact, in hundredths.
quint64 DistanceView::distance(const Record& option)
{
    const Field bid = option.data(Board::UnderlyingBid);
    const Field ask = option.data(Board::UnderlyingAsk);
    if (bid.isNull() || ask.isNull())
        return std::numeric_limits<quint64>::max();
    const decimal strike = option.data(Board::Strike).toDecimal();
    const decimal twice = strike + strike - bid.toDecimal() - ask.toDecimal();
    return quint64(qAbs(twice.mantissa()));
}

int DistanceView::compare(const Record& a, const Record& b) const
{
    const quint64 distanceA = distance(a);
    const quint64 distanceB = distance(b);
    if (distanceA != distanceB)
        return distanceA < distanceB ? -1 : 1;
    for (const int column : {Board::Expiry, Board::Strike, Board::Right})
        if (const int order = a.data(column).compare(b.data(column)))
            return order;
    return 0;
}

SortKey DistanceView::sortKey(const Record& record) const
{
    return {distance(record), 0};
}

bool DistanceView::isAffected(int firstColumn, int lastColumn) const
{
    const auto meets = [=](int first, int last) {
        return (lastColumn < 0 || first <= lastColumn) && last >= firstColumn;
    };
    return meets(Board::Expiry, Board::Strike) || meets(Board::UnderlyingBid, Board::UnderlyingAsk);
}
