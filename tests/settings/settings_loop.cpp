// SPDX-License-Identifier: MIT
// Syncs a settings file again and again. To be killed at it, with a check of what is left
// (scripts/kill_saves.py), or to write every key of one name while another process has another:
//
//     settings_loop once|forever|check DIR [NUMBER]
//     settings_loop mark DIR NAME
#include "settings/settings.h"

#include <QFileInfo>

#include <cstdio>
#include <cstring>

namespace {

constexpr int keys = 100;

QString key(const char* name, int i)
{
    return QStringLiteral("%1/%2").arg(QLatin1String(name)).arg(i);
}

/// Each state holds one number in all keys, so that a mixture of two shows.
int check(const Settings& settings)
{
    const QString number = settings.value(key("state", 0)).toString();
    for (int i = 0; i < keys; ++i)
        if (settings.value(key("state", i)).toString() != number || number.isEmpty()) {
            std::printf("status %d, key %d of another state\n", settings.status(), i);
            return 1;
        }
    std::printf("%s\n", qPrintable(number));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2;
    Settings settings(QFileInfo(QString::fromLocal8Bit(argv[2]) + QStringLiteral("/s.json")));
    if (std::strcmp(argv[1], "check") == 0)
        return check(settings);
    if (std::strcmp(argv[1], "mark") == 0) {
        for (int i = 0; i < keys; ++i) {
            settings.setValue(key(argv[3], i), 1); // a 0 before: the file's size tells nothing
            settings.sync();
        }
        return settings.status();
    }
    qint64 number = argc > 3 ? std::atoll(argv[3]) * 1000000 : 0;
    do {
        for (int i = 0; i < keys; ++i)
            settings.setValue(key("state", i),
                              QString(300, QLatin1Char('x')) + QString::number(number));
        settings.sync();
        ++number;
        std::printf("saved\n");
        std::fflush(stdout);
    } while (std::strcmp(argv[1], "once") != 0 && settings.status() == QSettings::NoError);
    return settings.status();
}
