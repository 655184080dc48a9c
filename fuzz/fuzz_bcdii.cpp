// SPDX-License-Identifier: MIT
// Packed decimals made of the input's bytes, against integers of any size: which bytes are a number
// at all, its text, and operations on two of them.
#include "require.h"
#include "source.h"
#include "support/bcdiioracle.h"

using namespace Oracle;

namespace {

/// Makes operands of the bytes.
struct Source : ByteSource
{
    unsigned int type() { return BCDIITYPE(1 + below(63), below(125) - 62); }
    Buffer number()
    {
        const unsigned int ofType = type();
        Big n = 0;
        for (int bytes = below(33); bytes > 0; --bytes)
            n = n * 100 + below(100);
        n %= power(int(ofType >> 8));
        return Buffer(below(2) ? Big(-n) : n, ofType);
    }
};

// The number that some digit bytes are, valid or not.
Big decoded(const Buffer& buffer)
{
    Big n = buffer.digits()[0] & 127;
    for (unsigned int i = 1; i < BCDIISIZE(buffer.type()); ++i)
        n = n * 100 + buffer.digits()[i];
    n /= buffer.type() & 1 ? 10 : 1;
    return buffer.digits()[0] & 128 ? Big(-n) : n;
}

void checkText(const Buffer& number)
{
    char* text = BCDII2StringSequence(number.bytes);
    Buffer again(number.type());
    if (number.scale() >= 0 && number.number.n != 0) {
        const unsigned int flags = BCDIIFromString(again.bytes, text);
        require(agrees("text", flags, again, {number.number.n < 0 ? 4U : 0U, number.number.n}));
    }
    std::free(text);
}

void checkForeign(Source source)
{
    const unsigned int type = static_cast<unsigned int>(source.below(256) << 8 | source.below(256));
    Buffer found(type);
    const unsigned int size = BCDIICheckType(type) ? BCDIISIZE(type) : 32;
    for (unsigned int i = 0; i < size; ++i)
        found.digits()[i] = static_cast<unsigned char>(source.below(256));
    unsigned int flags = BCDII_RESULT_INVALID;
    if (BCDIICheckType(type)) {
        const Big n = decoded(found);
        const Buffer exact(n, type);
        if (found.digits()[0] == 101)
            flags |= BCDII_RESULT_NAN;
        else if (abs(n) < power(found.precision()) &&
                 std::memcmp(exact.bytes, found.bytes, sizeof exact.bytes) == 0) {
            flags = n == 0 ? 2 : n < 0 ? 4 : 0;
            checkText(exact);
        }
    }
    require(BCDIICheck(found.bytes) == flags);
}

void checkOperations(Source source)
{
    const auto style = static_cast<BCDIIroundstyle>(source.below(5));
    const unsigned int resType = source.type();
    const Buffer a = source.number();
    Buffer b = source.number();
    const Stored near = store(-a.number, b.precision(), b.scale(), style);
    if (source.below(2) && !near.isMarked()) // -a or a neighbour of it: the sum cancels
        b = Buffer(near.n, b.type());
    require(operationsAgree(a, b, resType, style));
    require(operationsAgree(b, a, resType, style));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    checkForeign({data, size});
    checkOperations({data, size});
    return 0;
}
