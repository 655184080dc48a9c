// SPDX-License-Identifier: MIT
// The row of the stores that keep plain structures, and what they do with it.
#pragma once

#include "views.h"

#include <QtEndian>

#include <cstdio>
#include <cstring>
#include <tuple>

namespace bench {

struct FlatRow
{
    qint64 id;
    qint64 price;
    qint64 bid;
    qint64 ask;
    qint64 quantity;
    double volume;
    qint64 time;
    qint32 board;
    char status[4] = {}; // without a 0 where they are full
    char symbol[16] = {};

    explicit FlatRow(const Quote& quote)
        : id(quote.id)
        , price(quote.price)
        , bid(quote.bid)
        , ask(quote.ask)
        , quantity(quote.quantity)
        , volume(quote.volume)
        , time(quote.time)
        , board(quote.board)
    {
        const char* const text = symbolText(quote.symbol);
        std::memcpy(symbol, text, strnlen(text, sizeof(symbol)));
        const char* const word = statusText(quote.status);
        std::memcpy(status, word, strnlen(word, sizeof(status)));
    }

    Quote toQuote() const
    {
        const auto text = [](const char* chars, size_t size) {
            return QString::fromLatin1(chars, static_cast<int>(strnlen(chars, size)));
        };
        return {
            id,     board, symbolNumber(text(symbol, sizeof(symbol))), price, bid, ask, quantity,
            volume, time,  statusNumber(text(status, sizeof(status)))};
    }
};

/// The keys of the views, to be kept beside the rows; they compare as numbers.
using NumberKey = qint64;
using SymbolKey = std::tuple<quint64, quint64, qint64>;

inline NumberKey keyOf(std::integral_constant<View, ByPrice>, const FlatRow& row)
{
    return row.price;
}
inline SymbolKey keyOf(std::integral_constant<View, BySymbolPrice>, const FlatRow& row)
{
    return {qFromBigEndian<quint64>(row.symbol), qFromBigEndian<quint64>(row.symbol + 8),
            row.price};
}
inline NumberKey keyOf(std::integral_constant<View, ByTime>, const FlatRow& row)
{
    return row.time;
}
inline NumberKey keyOf(std::integral_constant<View, ByQuantity>, const FlatRow& row)
{
    return -row.quantity;
}

/// Writes the texts that Store::page() asks for.
inline qint64 writeTexts(const FlatRow& row)
{
    char text[128];
    size_t length = strnlen(row.symbol, sizeof(row.symbol));
    std::memcpy(text, row.symbol, length);
    char* end = text + length;
    for (const qint64 price : {row.price, row.bid, row.ask})
        end += decimal::fromMantissa(price, 2).toChars(end);
    end += decimal::fromMantissa(row.quantity, 0).toChars(end);
    asm volatile("" : : "r"(text) : "memory"); // they are wanted
    return end - text;
}

} // namespace bench
