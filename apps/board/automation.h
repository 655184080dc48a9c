// SPDX-License-Identifier: MIT
#pragma once

#include "options.h"

#include <QElapsedTimer>
#include <QObject>

class MainWindow;

/// Runs of the program without a user: pictures of every screen after given minutes, and playing
/// the session over and over to see that memory and frames stay as they are.
class Automation : public QObject
{
    Q_OBJECT

public:
    /// Begins at once when the options ask for one of both; both outlive it.
    Automation(MainWindow& automated, const Options& given);

private:
    void frame();
    void takePictures(double minute);
    void save(QWidget& screen, double minute, const QString& name);
    void endPass();
    void endLoop();

    MainWindow& window;
    const Options& options;
    int nextPicture = 0;
    QElapsedTimer sinceStop; ///< of the session, for a picture

    QElapsedTimer sinceBegin; ///< of the loop
    QElapsedTimer sincePass;
    int passes = 0;
    double firstMegabytes = 0; ///< after the first pass
    double mostMegabytes = 0;  ///< after any later one
};
