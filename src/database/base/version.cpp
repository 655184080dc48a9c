// SPDX-License-Identifier: MIT
#include "base/version.h"

#define LIVETABLE_TEXT_OF(number) #number
#define LIVETABLE_TEXT(number) LIVETABLE_TEXT_OF(number)

namespace {

constexpr bool isSame(const char* a, const char* b)
{
    return *a == *b && (*a == '\0' || isSame(a + 1, b + 1));
}

static_assert(isSame(LIVETABLE_VERSION_STR,
                     LIVETABLE_TEXT(LIVETABLE_VERSION_MAJOR) "." LIVETABLE_TEXT(
                         LIVETABLE_VERSION_MINOR) "." LIVETABLE_TEXT(LIVETABLE_VERSION_PATCH)),
              "the text says what the numbers say");

} // namespace

const char* LiveTable::version() noexcept
{
    return LIVETABLE_VERSION_STR;
}
