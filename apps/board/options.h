// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

/// What the command line asks for.
struct Options
{
    QString data;                ///< the folder of a recorded day; empty for the built-in session
    std::optional<double> speed; ///< Feed::MaximumSpeed for "max"
    QString workplace;           ///< empty for the last one
    QString settingsDir;         ///< empty for the usual place
    std::optional<bool> dark;
    QSize size;                   ///< of the window; invalid for that of the workplace
    QString load;                 ///< a saved board to begin with
    QString screenshotDir;        ///< empty for none
    QVector<double> screenshotAt; ///< simulated minutes, ascending
    double replayLoopMinutes = 0; ///< real ones; 0 for no loop
    bool help = false;
    QString helpText;
};

/// Throws InputError for words that cannot be.
Options parseOptions(const QStringList& words);
