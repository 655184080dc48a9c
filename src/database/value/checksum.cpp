// SPDX-License-Identifier: MIT
#include "value/checksum.h"

#include "value/checksum_p.h"

#include <QtEndian>

#include <array>

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

LiveTable::Crc64Update LiveTable::selectCrc64Update() noexcept
{
    return crc64UpdatePortable;
}

quint64 qChecksum64(const char* data, unsigned int length) noexcept
{
    static const LiveTable::Crc64Update update = LiveTable::selectCrc64Update();
    return ~update(~quint64(0), reinterpret_cast<const unsigned char*>(data), length);
}
