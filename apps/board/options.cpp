// SPDX-License-Identifier: MIT
#include "options.h"

#include "feed.h"

#include <QCommandLineParser>
#include <QRegularExpression>

#include <algorithm>

namespace {

void addOptions(QCommandLineParser& parser)
{
    const auto add = [&parser](const char* name, const char* description, const char* value) {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(description),
                          QString::fromLatin1(value)});
    };
    parser.setApplicationDescription(
        QStringLiteral("The market board: a day of option quotes on the screen.\n\n"
                       "Exit code: 0 closed; 2 bad arguments or bad input; 3 anything else."));
    parser.addOption(
        {{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this text.")});
    add("data", "Play the recorded day in the folder <dir> instead of the built-in session.",
        "dir");
    add("load", "Begin with the board that was saved to the folder <dir>.", "dir");
    add("speed", "Play <x> times as fast as real time, or 'max'.", "x");
    add("workplace", "Use the workplace <name>, which is made if there is none.", "name");
    add("settings-dir", "Look for settings below <dir>, as if the program lay there.", "dir");
    add("palette", "Use the 'dark' or the 'light' palette.", "name");
    add("size", "Make the window <w>x<h> pixels large.", "wxh");
    add("screenshot-dir", "Take pictures of every screen into the folder <dir>, and end.", "dir");
    add("screenshot-at", "After these simulated minutes (1,10,60).", "minutes");
    add("replay-loop",
        "Play the session over and over for <minutes> of real time, then print the memory after "
        "the first pass and at the end, how many frames took longer than 50 ms, and the worst.",
        "minutes");
}

/// A number above 0; throws in the option's name.
double positive(const QString& text, const QString& option)
{
    bool isNumber = false;
    const double value = text.toDouble(&isNumber);
    constexpr double most = 1e6;
    if (!isNumber || !(value > 0) || value > most)
        throw InputError{QStringLiteral("--%1 needs numbers above 0, not '%2'").arg(option, text)};
    return value;
}

QSize sizeOf(const QString& text)
{
    static const QRegularExpression form(QStringLiteral("^(\\d{3,5})x(\\d{3,5})$"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        throw InputError{QStringLiteral("--size needs a size such as 1280x800")};
    return {match.captured(1).toInt(), match.captured(2).toInt()};
}

} // namespace

Options parseOptions(const QStringList& words)
{
    QCommandLineParser parser;
    addOptions(parser);
    if (!parser.parse(words))
        throw InputError{parser.errorText()};
    if (!parser.positionalArguments().isEmpty())
        throw InputError{
            QStringLiteral("unexpected argument '%1'").arg(parser.positionalArguments().first())};

    Options options;
    options.help = parser.isSet(QStringLiteral("help"));
    options.helpText = parser.helpText();
    const auto text = [&parser](const char* name) {
        const QString option = QString::fromLatin1(name);
        const QString value = parser.value(option);
        if (parser.isSet(option) && value.isEmpty())
            throw InputError{QStringLiteral("--%1 needs a value").arg(option)};
        return value;
    };
    options.data = text("data");
    options.load = text("load");
    options.workplace = text("workplace");
    options.settingsDir = text("settings-dir");
    options.screenshotDir = text("screenshot-dir");
    if (const QString speed = text("speed"); !speed.isEmpty())
        options.speed = speed == QLatin1String("max") ? Feed::MaximumSpeed
                                                      : positive(speed, QStringLiteral("speed"));
    if (const QString palette = text("palette"); !palette.isEmpty()) {
        if (palette != QLatin1String("dark") && palette != QLatin1String("light"))
            throw InputError{QStringLiteral("--palette is 'dark' or 'light'")};
        options.dark = palette == QLatin1String("dark");
    }
    if (const QString size = text("size"); !size.isEmpty())
        options.size = sizeOf(size);
    const QStringList minutes = text("screenshot-at").split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString& minute : minutes)
        options.screenshotAt += positive(minute, QStringLiteral("screenshot-at"));
    std::sort(options.screenshotAt.begin(), options.screenshotAt.end());
    if (options.screenshotDir.isEmpty() != options.screenshotAt.isEmpty())
        throw InputError{QStringLiteral("--screenshot-dir and --screenshot-at need each other")};
    if (const QString loop = text("replay-loop"); !loop.isEmpty())
        options.replayLoopMinutes = positive(loop, QStringLiteral("replay-loop"));
    return options;
}
