// SPDX-License-Identifier: MIT
// Not part of the interface: may change from one version to the next.
//
// The one place that looks at the bytes of a cell. Nothing here allocates or throws, and no pointer
// needs an alignment: rows come from files and buffers as well as from tables.
#pragma once

#include "table/fieldtype.h"
#include "value/boardlist.h"
#include "value/datetime.h"
#include "value/decimal.h"
#include "value/xdecimal.h"

#include <cstring>
#include <type_traits>

namespace LiveTable {

/// The value of the bytes at `from`, which may be any bytes.
template <class T>
T load(const unsigned char* from) noexcept
{
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

/// Puts the bytes of `value` at `to`.
template <class T>
void store(unsigned char* to, const T& value) noexcept
{
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(to, &value, sizeof value);
}

// Those whose classes refuse raw bytes, or want them checked.
template <>
inline decimal load<decimal>(const unsigned char* from) noexcept
{
    return decimal::fromRaw(load<qint64>(from));
}
template <>
inline xdecimal load<xdecimal>(const unsigned char* from) noexcept
{
    return xdecimal::fromRaw(from);
}
template <>
inline void store<decimal>(unsigned char* to, const decimal& value) noexcept
{
    store(to, value.raw());
}
template <>
inline void store<xdecimal>(unsigned char* to, const xdecimal& value) noexcept
{
    value.toRaw(to);
}

/// Whether one of the four 16-bit units in `units` is zero.
constexpr bool hasZeroUnit(quint64 units) noexcept
{
    constexpr quint64 ones = Q_UINT64_C(0x0001000100010001);
    return ((units - ones) & ~units & (ones << 15)) != 0;
}

inline quint16 unitAt(const unsigned char* cell, int i) noexcept
{
    return load<quint16>(cell + size_t(i) * 2);
}

/// Units before the first zero unit, at most `length`; 0 for a negative length.
inline int textLength(const unsigned char* cell, int length) noexcept
{
    int i = 0;
    while (length - i >= 4 && !hasZeroUnit(load<quint64>(cell + size_t(i) * 2)))
        i += 4;
    while (i < length && unitAt(cell, i) != 0)
        ++i;
    return i;
}

/// -1, 0 or 1: texts by their UTF-16 units, the shorter one first when it begins the longer one.
inline int compareText(const unsigned char* a, int lengthA, const unsigned char* b,
                       int lengthB) noexcept
{
    const int common = qMin(lengthA, lengthB);
    int i = 0;
    while (common - i >= 4) {
        const auto unitsA = load<quint64>(a + size_t(i) * 2);
        if (unitsA != load<quint64>(b + size_t(i) * 2) || hasZeroUnit(unitsA))
            break;
        i += 4;
    }
    for (; i < common; ++i) {
        const quint16 unitA = unitAt(a, i);
        const quint16 unitB = unitAt(b, i);
        if (unitA != unitB)
            return unitA < unitB ? -1 : 1;
        if (unitA == 0)
            return 0;
    }
    if (i < lengthA)
        return unitAt(a, i) != 0;
    return i < lengthB && unitAt(b, i) != 0 ? -1 : 0;
}

/// -1, 0 or 1 for values with a less-than.
template <class T>
constexpr int compareValues(const T& a, const T& b) noexcept
{
    return (b < a) - (a < b);
}

/// The same for doubles, made a total order: a NaN equals a NaN and is below every number. The
/// zeros of both signs are equal.
inline int compareValues(double a, double b) noexcept
{
    return a == b ? 0 : a < b ? -1 : a > b ? 1 : (b != b) - (a != a);
}

/**
 * -1, 0 or 1: the order of two cells that are not NULL and belong to columns of the same type and
 * length. This is the order of Field::compare() for such cells: a strict weak order over any bytes.
 * Cells of an undefined type are all equal.
 */
inline int compareSameType(FieldType::Type type, int length, const unsigned char* a,
                           const unsigned char* b) noexcept
{
    switch (type) {
    case FieldType::Integer:
        return compareValues(load<qint32>(a), load<qint32>(b));
    case FieldType::Integer64:
    case FieldType::DateTime: // ordered by its count
        return compareValues(load<qint64>(a), load<qint64>(b));
    case FieldType::Double:
        return compareValues(load<double>(a), load<double>(b));
    case FieldType::Decimal:
        return load<decimal>(a).compare(load<decimal>(b));
    case FieldType::VarChar:
        return compareText(a, length, b, length);
    case FieldType::BoardList:
        return load<boardlist>(a).compare(load<boardlist>(b));
    case FieldType::XDecimal:
        return load<xdecimal>(a).compare(load<xdecimal>(b));
    case FieldType::Undefined:
        break;
    }
    return 0;
}

} // namespace LiveTable
