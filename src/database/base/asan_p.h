// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define LIVETABLE_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LIVETABLE_ASAN 1
#endif
#endif
#ifdef LIVETABLE_ASAN
#include <sanitizer/asan_interface.h>
#endif
