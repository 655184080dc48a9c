// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/// Marks what the library exports. A program that uses the library sees an import; a static build
/// (LIVETABLE_STATIC) needs neither.
#if defined(LIVETABLE_STATIC)
#define LIVETABLE_EXPORT
#elif defined(LIVETABLE_BUILD)
#define LIVETABLE_EXPORT Q_DECL_EXPORT
#else
#define LIVETABLE_EXPORT Q_DECL_IMPORT
#endif
