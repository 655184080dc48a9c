// SPDX-License-Identifier: MIT
// Settings files from outside. What is read is written and read again: after the first rounds, in
// which some keys may give way to others, nothing changes any more.
#include "require.h"
#include "settings/qtjsonsettings.h"

#include <QBuffer>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    constexpr int rounds = 5;
    QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
    QByteArray before;
    for (int round = 0; round < rounds; ++round) {
        QMap<QString, QVariant> map;
        QBuffer in(&bytes);
        in.open(QIODevice::ReadOnly);
        if (!QtJsonSettings::readJsonFile(in, map)) {
            require(round == 0 && map.isEmpty());
            return 0;
        }
        QBuffer out;
        out.open(QIODevice::WriteOnly);
        require(QtJsonSettings::writeJsonFile(out, map));
        before = bytes;
        bytes = out.data();
    }
    require(bytes == before);
    return 0;
}
