// SPDX-License-Identifier: MIT
// Operations on packed decimals against the oracle of numbers.
#pragma once

#include "support/numberoracle.h"

namespace Oracle {

inline QByteArray show(unsigned int flags, const Buffer& buffer)
{
    const int size = static_cast<int>(BCDIISIZE(buffer.type()));
    return QByteArray::number(flags, 16) + ' ' + QByteArray::number(buffer.type(), 16) + ' ' +
           QByteArray(reinterpret_cast<const char*>(buffer.digits()), size).toHex(' ');
}

/// Whether an operation stored what the oracle says, with its flags, and nothing beside it.
inline bool agrees(const char* operation, unsigned int flags, const Buffer& found,
                   const Stored& expected)
{
    const unsigned int state = flags & (BCDII_RESULT_ZERO | BCDII_RESULT_NEGATIVE);
    const Buffer exact(expected.n, found.type());
    const bool good = expected.isMarked()
                          ? found.digits()[0] == 101 && BCDIICheck(found.bytes) == 0xA0
                          : std::memcmp(exact.bytes, found.bytes, sizeof found.bytes) == 0 &&
                                BCDIICheck(found.bytes) == state;
    if (good && flags == expected.flags && found.isGuarded())
        return true;
    qWarning("%s gives %s, expected %s", operation, show(flags, found).constData(),
             show(expected.flags, exact).constData());
    return false;
}

/// Sum, product, copy and order, into resType, against the oracle.
inline bool operationsAgree(const Buffer& a, const Buffer& b, unsigned int resType,
                            BCDIIroundstyle style)
{
    const auto expected = [&](const Number& number) {
        return store(number, int(resType >> 8), static_cast<signed char>(resType & 255U), style);
    };
    const unsigned char* x = a.digits();
    const unsigned char* y = b.digits();
    const unsigned int xType = a.type() | 0xABC0000U; // bits above a type do not matter
    Buffer sum(resType);
    Buffer product(resType);
    Buffer copy(resType);
    const unsigned int added = BCDIIAdd(sum.digits(), resType, x, xType, y, b.type(), style);
    const unsigned int times = BCDIIMul(product.digits(), resType, x, xType, y, b.type(), style);
    const unsigned int copied = BCDIICopy(copy.digits(), resType, x, xType, style);
    const bool good = agrees("add", added, sum, expected(a.number + b.number)) &&
                      agrees("mul", times, product, expected(a.number * b.number)) &&
                      agrees("copy", copied, copy, expected(a.number)) &&
                      BCDIICmp(x, xType, y, b.type()) == a.number.compare(b.number);
    if (!good)
        qWarning("operands %s, %s", show(0, a).constData(), show(0, b).constData());
    return good;
}

} // namespace Oracle
