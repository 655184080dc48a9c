// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include <QString>

namespace LiveTable {

/// A message in the logging category "QGuiLog".
void settingsDebug(const QString& text);
void settingsWarning(const QString& text);

} // namespace LiveTable
