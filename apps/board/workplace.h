// SPDX-License-Identifier: MIT
#pragma once

#include "settings/settings.h"

#include <QStringList>

/// Named layouts of the window, each a workplace of the library's with a group of the board's own.
/// Names are such as WorkplaceSettings::isName() accepts.
namespace Workplace {

/// The one there is always.
QString standardName();

/// All there are, the standard one first.
QStringList names();

/// The one that was used last.
QString last();
void setLast(const QString& name);

/// Of the workplace, at the board's group: to read the user's or the shipped one, and to write the
/// user's.
Settings toRead(const QString& name);
Settings toWrite(const QString& name);

} // namespace Workplace
