// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

/// Makes choices of an input's bytes, of zeros when they are used up.
struct ByteSource
{
    const unsigned char* at;
    size_t left;

    /// 0 to end - 1, of one byte.
    int below(int end)
    {
        if (left == 0)
            return 0;
        --left;
        return *at++ % end;
    }
};
