// SPDX-License-Identifier: MIT
// Not part of the interface: may change from one version to the next.
#pragma once

#include <QtGlobal>

#include <cstddef>

namespace LiveTable {

/// Advances a CRC-64 register (polynomial 0x42F0E1EBA9EA3693, most significant bit first) over
/// `length` bytes. Every form gives the same register for the same bytes.
using Crc64Update = quint64 (*)(quint64 crc, const unsigned char* data, std::size_t length);

/// Table-driven, eight bytes a step; works everywhere.
quint64 crc64UpdatePortable(quint64 crc, const unsigned char* data, std::size_t length) noexcept;

/// The fastest form that this processor can run. Chosen at the first checksum and kept.
Crc64Update selectCrc64Update() noexcept;

} // namespace LiveTable
