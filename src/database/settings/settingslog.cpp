// SPDX-License-Identifier: MIT
#include "settings/settingslog_p.h"

#include <QLoggingCategory>

namespace {
Q_LOGGING_CATEGORY(QGuiLog, "QGuiLog")
}

// As an argument, and so without the quotes and escapes that QDebug gives a QString.

void LiveTable::settingsDebug(const QString& text)
{
    qCDebug(QGuiLog, "%s", qUtf8Printable(text));
}

void LiveTable::settingsWarning(const QString& text)
{
    qCWarning(QGuiLog, "%s", qUtf8Printable(text));
}
