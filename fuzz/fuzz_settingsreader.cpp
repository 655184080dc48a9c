// SPDX-License-Identifier: MIT
// Settings files from outside. What is read is written and read again: after the first rounds, in
// which some keys may give way to others, nothing changes any more.
#include "settings/qtjsonsettings.h"

#include <QBuffer>
#include <QLoggingCategory>

#include <cstdlib>

namespace {

bool read(QByteArray bytes, QMap<QString, QVariant>& map)
{
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    return QtJsonSettings::readJsonFile(buffer, map);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    static const bool isQuiet = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
        return true;
    }();
    Q_UNUSED(isQuiet)
    constexpr int rounds = 5;
    QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
    QByteArray before;
    for (int round = 0; round < rounds; ++round) {
        QMap<QString, QVariant> map;
        if (!read(bytes, map)) {
            if (round > 0 || !map.isEmpty())
                std::abort();
            return 0;
        }
        before = bytes;
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        if (!QtJsonSettings::writeJsonFile(buffer, map))
            std::abort();
        bytes = buffer.data();
    }
    if (bytes != before)
        std::abort();
    return 0;
}
