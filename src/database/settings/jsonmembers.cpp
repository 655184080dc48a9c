// SPDX-License-Identifier: MIT
#include "settings/jsonmembers_p.h"

#include <QHash>
#include <QString>
#include <QVector>

#include <cstring>

namespace {

/// Walks over a text of JSON as far as its brackets, strings and commas go, and more leniently than
/// Qt does, so that it gets at least as far.
class MemberScanner
{
public:
    explicit MemberScanner(QByteArray& text)
        : json(text)
    {}

    bool blankRepeated();

private:
    struct Span
    {
        int start;
        int end; ///< behind the comma
    };
    /// An object or array that is open; arrays have no members.
    struct Level
    {
        bool isObject = false;
        bool isName = false; ///< the next text is a member's name
        QString name;        ///< of the member that is being read
        int memberStart = 0;
        QHash<QString, Span> members{};
    };

    QString readText();
    void endMember(int end);
    void blank(const Span& span);

    QByteArray& json;
    int at = 0;
    QVector<Level> levels;
    QVector<Span> repeated;
};

/// The text that starts at `at`, which moves behind it. Escapes are read as Qt reads them.
QString MemberScanner::readText()
{
    const char* const bytes = json.constData();
    QString text;
    int run = ++at;
    const auto takeRun = [&] { text += QString::fromUtf8(bytes + run, at - run); };
    while (at < json.size() && bytes[at] != '"') {
        if (bytes[at] != '\\' || at + 1 == json.size()) {
            ++at;
            continue;
        }
        takeRun();
        ++at;
        const char letters[] = "bfnrt";
        const char characters[] = "\b\f\n\r\t";
        const char* const letter = bytes[at] ? std::strchr(letters, bytes[at]) : nullptr;
        if (bytes[at] == 'u') {
            text += QChar(json.mid(at + 1, 4).toUShort(nullptr, 16));
            at = qMin(at + 4, json.size() - 1);
            run = ++at;
        } else if (letter) {
            text += QLatin1Char(characters[letter - letters]);
            run = ++at;
        } else {
            run = at++; // stands for itself
        }
        at = qMin(at, json.size());
    }
    takeRun();
    at = qMin(at + 1, json.size());
    return text;
}

void MemberScanner::endMember(int end)
{
    Level& level = levels.last();
    if (!level.isObject || level.isName)
        return;
    const auto earlier = level.members.constFind(level.name);
    if (earlier != level.members.constEnd())
        repeated.append(*earlier);
    level.members.insert(level.name, {level.memberStart, end});
}

void MemberScanner::blank(const Span& span)
{
    std::memset(json.data() + span.start, ' ', static_cast<size_t>(span.end - span.start));
}

bool MemberScanner::blankRepeated()
{
    while (at < json.size()) {
        const char c = json.at(at);
        if (c == '"') {
            const int start = at;
            const QString text = readText();
            if (!levels.isEmpty() && levels.last().isName) {
                levels.last().isName = false;
                levels.last().name = text;
                levels.last().memberStart = start;
            }
            continue;
        }
        ++at;
        if (c == '{' || c == '[') {
            levels.append(Level());
            levels.last().isObject = levels.last().isName = c == '{';
        } else if (levels.isEmpty()) {
            continue;
        } else if (c == ',') {
            endMember(at);
            levels.last().isName = levels.last().isObject;
        } else if (c == '}' || c == ']') {
            endMember(at);
            levels.removeLast();
        }
    }
    for (const Span& span : qAsConst(repeated))
        blank(span);
    return !repeated.isEmpty();
}

} // namespace

bool LiveTable::blankRepeatedMembers(QByteArray& json)
{
    return MemberScanner(json).blankRepeated();
}
