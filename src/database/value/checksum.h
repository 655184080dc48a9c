// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QtGlobal>

/**
 * The CRC-64/WE of `length` bytes: polynomial 0x42F0E1EBA9EA3693 (ECMA-182), most significant bit
 * first, register initially all ones, result complemented.
 *
 * Length 0 gives 0 and does not look at `data`, which may then be null. Nothing is thrown. Safe
 * from any thread. The nine ASCII digits "123456789" give 0x62EC59E3F1A4F00A.
 */
LIVETABLE_EXPORT quint64 qChecksum64(const char* data, unsigned int length) noexcept;
