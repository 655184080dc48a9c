// SPDX-License-Identifier: MIT
#pragma once

#include "value/decimal.h"

#include <optional>
#include <string_view>

/// The exact price that a feed writes as text: below a billion, with at most six decimals. Equal
/// prices come out as equal words, at two decimals or as many more as they need, and the difference
/// of two prices is always exact. Nothing for any other text.
std::optional<decimal> parsePrice(std::string_view text);
