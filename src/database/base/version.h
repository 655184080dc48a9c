// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

/// @file
/// The version of the library: as macros, those of the headers that a program is compiled with; as
/// a function, that of the library that it runs with. Versions follow semantic versioning: within
/// one major number a program runs with every library that is not older than its headers.
///
/// @code
/// #if LIVETABLE_VERSION >= LIVETABLE_VERSION_CHECK(1, 1, 0)
/// ...
/// #endif
/// @endcode

/// The three numbers of the version. The build reads them here, and nowhere else are they written.
#define LIVETABLE_VERSION_MAJOR 1
#define LIVETABLE_VERSION_MINOR 0 ///< See LIVETABLE_VERSION_MAJOR.
#define LIVETABLE_VERSION_PATCH 0 ///< See LIVETABLE_VERSION_MAJOR.

/// A version as one number, for comparisons in the preprocessor; each part 0 to 255.
#define LIVETABLE_VERSION_CHECK(major, minor, patch) (((major) << 16) | ((minor) << 8) | (patch))

/// The version of these headers as one number.
#define LIVETABLE_VERSION                                                                          \
    LIVETABLE_VERSION_CHECK(LIVETABLE_VERSION_MAJOR, LIVETABLE_VERSION_MINOR,                      \
                            LIVETABLE_VERSION_PATCH)

/// The version of these headers as a text: "1.0.0".
#define LIVETABLE_VERSION_STR "1.0.0"

/// What the library calls its own.
namespace LiveTable {

/// The version of the library that is loaded, as LIVETABLE_VERSION_STR was when it was built.
/// Never null, valid for good, from any thread.
LIVETABLE_EXPORT const char* version() noexcept;

} // namespace LiveTable
