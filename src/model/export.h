// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/// Marks what the model library exports; works as LIVETABLE_EXPORT of the core does.
#if defined(LIVETABLE_STATIC)
#define LIVETABLE_MODEL_EXPORT
#elif defined(LIVETABLE_MODEL_BUILD)
#define LIVETABLE_MODEL_EXPORT Q_DECL_EXPORT
#else
#define LIVETABLE_MODEL_EXPORT Q_DECL_IMPORT
#endif
