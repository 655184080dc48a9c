// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>

/// Ends a fuzz target's run as a finding.
inline void require(bool isTrue)
{
    if (!isTrue)
        std::abort();
}
