// SPDX-License-Identifier: MIT
#include "value/checksum.h"

#include "value/checksum_p.h"

#include <QtEndian>

#include <array>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#define LIVETABLE_HAS_CLMUL 1
#include <immintrin.h>
#endif

namespace {

constexpr quint64 polynomial = Q_UINT64_C(0x42F0E1EBA9EA3693);

// tables[k][b] is the register after the byte b at its top and k zero bytes: with eight of them the
// contributions of eight bytes are looked up independently of each other and joined by exclusive or
// (M. E. Kounavis and F. L. Berry, "A Systematic Approach to Building High Performance
// Software-Based CRC Generators", 2005: slicing by eight).
using Tables = std::array<std::array<quint64, 256>, 8>;

constexpr Tables makeTables()
{
    Tables tables = {};
    for (unsigned byte = 0; byte < 256; ++byte) {
        quint64 crc = quint64(byte) << 56;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc << 1) ^ ((crc >> 63) ? polynomial : 0);
        tables[0][byte] = crc;
    }
    for (unsigned byte = 0; byte < 256; ++byte) {
        for (unsigned k = 1; k < 8; ++k) {
            const quint64 before = tables[k - 1][byte];
            tables[k][byte] = (before << 8) ^ tables[0][before >> 56];
        }
    }
    return tables;
}

constexpr Tables tables = makeTables();

} // namespace

quint64 LiveTable::crc64UpdatePortable(quint64 crc, const unsigned char* data,
                                       std::size_t length) noexcept
{
    for (; length >= 8; data += 8, length -= 8) {
        const quint64 x = crc ^ qFromBigEndian<quint64>(data);
        crc = tables[7][x >> 56] ^ tables[6][x >> 48 & 255] ^ tables[5][x >> 40 & 255] ^
              tables[4][x >> 32 & 255] ^ tables[3][x >> 24 & 255] ^ tables[2][x >> 16 & 255] ^
              tables[1][x >> 8 & 255] ^ tables[0][x & 255];
    }
    for (; length > 0; ++data, --length)
        crc = (crc << 8) ^ tables[0][(crc >> 56) ^ *data];
    return crc;
}

#ifdef LIVETABLE_HAS_CLMUL
// Bytes are the coefficients of a polynomial, the first bit that of the highest power, and the
// register is the remainder after a division. So a block of 128 bits H * x^64 + L may be replaced,
// d bits further on, by anything of the same remainder as it times x^d, and that are two products
// without carry with constants: H * (x^(d+64) mod P) + L * (x^d mod P) (V. Gopal and others, "Fast
// CRC Computation for Generic Polynomials Using PCLMULQDQ Instruction", 2009). Eight blocks are on
// their way at a time; what is left in the end is divided by the table.
namespace {

constexpr quint64 remainderOfPower(int n)
{
    quint64 power = 1;
    for (int i = 0; i < n; ++i)
        power = (power << 1) ^ ((power >> 63) ? polynomial : 0);
    return power;
}

#define LIVETABLE_CLMUL __attribute__((target("pclmul,ssse3")))

constexpr int lanes = 8;
constexpr std::size_t laneBytes = 16;

// With the block's first byte on top.
LIVETABLE_CLMUL inline __m128i loadBlock(const unsigned char* data)
{
    const __m128i reversed = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data)), reversed);
}

// `far` holds x^(d+64) in its upper half and x^d in its lower.
LIVETABLE_CLMUL inline __m128i moved(__m128i block, __m128i far)
{
    return _mm_xor_si128(_mm_clmulepi64_si128(block, far, 0x11),
                         _mm_clmulepi64_si128(block, far, 0x00));
}

LIVETABLE_CLMUL inline __m128i constant(quint64 high, quint64 low)
{
    return _mm_set_epi64x(static_cast<qint64>(high), static_cast<qint64>(low));
}

// Brings a row of blocks, and the bytes behind them, to an end.
LIVETABLE_CLMUL inline quint64 finish(const __m128i* blocks, int n, const unsigned char* data,
                                      std::size_t length)
{
    constexpr quint64 nextHigh = remainderOfPower(128 + 64), nextLow = remainderOfPower(128);
    const __m128i next = constant(nextHigh, nextLow);
    __m128i whole = blocks[0];
    for (int i = 1; i < n; ++i)
        whole = _mm_xor_si128(moved(whole, next), blocks[i]);
    for (; length >= laneBytes; data += laneBytes, length -= laneBytes)
        whole = _mm_xor_si128(moved(whole, next), loadBlock(data));

    quint64 words[2];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(words), whole);
    unsigned char rest[laneBytes];
    qToBigEndian(words[1], rest);
    qToBigEndian(words[0], rest + 8);
    const quint64 crc = LiveTable::crc64UpdatePortable(0, rest, laneBytes);
    return LiveTable::crc64UpdatePortable(crc, data, length);
}

LIVETABLE_CLMUL quint64 crc64UpdateClmul(quint64 crc, const unsigned char* data,
                                         std::size_t length) noexcept
{
    constexpr std::size_t step = lanes * laneBytes;
    if (length < 2 * step)
        return LiveTable::crc64UpdatePortable(crc, data, length);
    constexpr quint64 farHigh = remainderOfPower(1024 + 64), farLow = remainderOfPower(1024);
    const __m128i far = constant(farHigh, farLow);

    __m128i blocks[lanes];
    for (std::size_t i = 0; i < lanes; ++i)
        blocks[i] = loadBlock(data + i * laneBytes);
    blocks[0] = _mm_xor_si128(blocks[0], constant(crc, 0));
    for (data += step, length -= step; length >= step; data += step, length -= step)
        for (std::size_t i = 0; i < lanes; ++i)
            blocks[i] = _mm_xor_si128(moved(blocks[i], far), loadBlock(data + i * laneBytes));
    return finish(blocks, lanes, data, length);
}

// The same with four blocks in a register of 512 bits, sixteen on their way.
#define LIVETABLE_WIDE_CLMUL __attribute__((target("avx512f,avx512bw,vpclmulqdq,pclmul,ssse3")))

LIVETABLE_WIDE_CLMUL quint64 crc64UpdateWide(quint64 crc, const unsigned char* data,
                                             std::size_t length) noexcept
{
    constexpr int registers = 4;
    constexpr std::size_t registerBytes = 4 * laneBytes;
    constexpr std::size_t step = registers * registerBytes;
    if (length < 2 * step)
        return crc64UpdateClmul(crc, data, length);
    constexpr quint64 farHigh = remainderOfPower(2048 + 64), farLow = remainderOfPower(2048);
    const __m512i far = _mm512_maskz_broadcast_i32x4(0xFFFF, constant(farHigh, farLow));
    const __m512i reversed = _mm512_maskz_broadcast_i32x4(
        0xFFFF, _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));

    __m512i blocks[registers];
    for (std::size_t i = 0; i < registers; ++i)
        blocks[i] = _mm512_shuffle_epi8(_mm512_loadu_si512(data + i * registerBytes), reversed);
    blocks[0] = _mm512_xor_si512(blocks[0],
                                 _mm512_set_epi64(0, 0, 0, 0, 0, 0, static_cast<qint64>(crc), 0));
    for (data += step, length -= step; length >= step; data += step, length -= step) {
        for (std::size_t i = 0; i < registers; ++i) {
            const __m512i next =
                _mm512_shuffle_epi8(_mm512_loadu_si512(data + i * registerBytes), reversed);
            blocks[i] = _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(blocks[i], far, 0x11),
                                                  _mm512_clmulepi64_epi128(blocks[i], far, 0x00),
                                                  next, 0x96); // all three by exclusive or
        }
    }
    __m128i narrow[4 * registers];
    std::memcpy(narrow, blocks, sizeof(narrow));
    return finish(narrow, 4 * registers, data, length);
}

} // namespace
#endif

LiveTable::Crc64Update LiveTable::selectCrc64Update() noexcept
{
#ifdef LIVETABLE_HAS_CLMUL
    if (__builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3")) {
        if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("vpclmulqdq"))
            return crc64UpdateWide;
        return crc64UpdateClmul;
    }
#endif
    return crc64UpdatePortable;
}

quint64 qChecksum64(const char* data, unsigned int length) noexcept
{
    static const LiveTable::Crc64Update update = LiveTable::selectCrc64Update();
    return ~update(~quint64(0), reinterpret_cast<const unsigned char*>(data), length);
}
