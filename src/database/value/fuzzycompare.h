// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

/**
 * Whether two doubles are equal to about twelve significant digits.
 *
 * A number of magnitude 1e-12 or less counts as zero. Two zeros are equal, a zero equals nothing
 * else, and other numbers are equal when |a - b| * 1e12 <= min(|a|, |b|). A NaN equals nothing; so
 * does an infinity, itself included. Not transitive: of no use as a sorting order.
 */
LIVETABLE_EXPORT bool commonFuzzyCompare(double a, double b) noexcept;
