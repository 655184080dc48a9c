// SPDX-License-Identifier: MIT
#include "value/boardlist.h"

#include <QMap>
#include <QStringList>

#include <cstring>

bool boardlist::append(qint32 group, qint32 board) noexcept
{
    const int end = count();
    if (end == capacity)
        return false;
    m_pairs[end] = {group, board};
    m_count = end + 1;
    return true;
}

QString boardlist::toString() const
{
    QMap<QString, QStringList> groups;
    for (int i = 0; i < count(); ++i)
        groups[QString::number(group(i))].append(QString::number(board(i)));

    QStringList texts;
    for (auto it = groups.cbegin(); it != groups.cend(); ++it)
        texts.append(it.key() + QLatin1Char(':') + it.value().join(QLatin1Char(',')));
    return texts.join(QLatin1Char(' '));
}

int boardlist::compare(const boardlist& other) const noexcept
{
    const int ours = count();
    const int theirs = other.count();
    const auto shared = static_cast<size_t>(qMin(ours, theirs)) * sizeof(Pair);
    const int bytes = std::memcmp(m_pairs, other.m_pairs, shared);
    if (bytes != 0)
        return bytes < 0 ? -1 : 1;
    return ours < theirs ? -1 : ours > theirs;
}
