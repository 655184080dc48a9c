// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include <QByteArray>

namespace LiveTable {

/// Blanks out, in a text of JSON, every member that another of the same name follows in its object:
/// the last one counts for Qt too, but Qt 5.15 loses memory over the others. All else stays where
/// it is. Returns whether there was one. A text that is no JSON is left for Qt to judge.
bool blankRepeatedMembers(QByteArray& json);

} // namespace LiveTable
