// SPDX-License-Identifier: MIT
#include "display.h"

#include "index/masterindex.h"

#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <map>
#include <unistd.h>
#include <vector>

QString clockText(int timeMs)
{
    const int minutes = timeMs / 60'000;
    return QStringLiteral("%1:%2")
        .arg(minutes / 60, 2, 10, QLatin1Char('0'))
        .arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

QString shortText(decimal value)
{
    while (value.scale() > 0 && value.mantissa() % 10 == 0)
        value.setScale(short(value.scale() - 1));
    return value.toString();
}

namespace {

QString cellText(const Field& cell)
{
    return cell.isNull() ? QStringLiteral("-") : cell.toString();
}

QString alignedText(const std::vector<QStringList>& lines)
{
    std::vector<int> widths(size_t(lines.front().size()), 0);
    for (const QStringList& line : lines)
        for (int i = 0; i < line.size(); ++i)
            widths[size_t(i)] = std::max(widths[size_t(i)], line[i].size());

    QString text;
    for (const QStringList& line : lines) {
        QString padded;
        for (int i = 0; i < line.size(); ++i)
            padded +=
                (i ? QStringLiteral("  ") : QString()) + line[i].rightJustified(widths[size_t(i)]);
        text += padded + QLatin1Char('\n');
    }
    return text;
}

} // namespace

QString underlyingLine(const Board& board, const QString& key)
{
    QStringList parts;
    const Record instrument = board.instruments().masterIndex()->findRecord(key);
    if (!instrument.isNull()) {
        parts += instrument.data(Board::Description).toString();
        parts += QStringLiteral("tick ") + shortText(instrument.data(Board::Tick).toDecimal());
        parts += QStringLiteral("multiplier ") +
                 shortText(instrument.data(Board::Multiplier).toDecimal());
    }
    const Record& nearest = board.futures().at(0);
    if (!nearest.isNull())
        parts += QStringLiteral("%1: %2 bid, %3 ask")
                     .arg(cellText(nearest.data(Board::FutureContract)),
                          cellText(nearest.data(Board::FutureBid)),
                          cellText(nearest.data(Board::FutureAsk)));
    return parts.isEmpty() ? QString() : parts.join(QStringLiteral(", ")) + QLatin1Char('\n');
}

namespace {

void pickColumns(std::vector<QStringList>& lines, const QStringList& columns)
{
    const QStringList all = spreadColumns();
    for (QStringList& line : lines) {
        QStringList picked;
        for (const QString& column : columns)
            picked.append(line.value(all.indexOf(column)));
        line = picked;
    }
}

} // namespace

QStringList spreadColumns()
{
    return QStringLiteral("expiry right strike bid bid-size ask ask-size spread time")
        .split(QLatin1Char(' '));
}

QString spreadTable(const Board& board, int count, const QStringList& columns)
{
    if (count <= 0)
        return QString();
    std::vector<QStringList> lines;
    QStringList headings;
    for (const QString& column : spreadColumns())
        headings.append(column.section(QLatin1Char('-'), -1));
    lines.push_back(headings);
    const IndexSort& view = *board.views()[Board::BySpread].index;
    for (const Record& row : view) {
        if (count-- == 0)
            break;
        lines.push_back({cellText(row.data(Board::Expiry)), cellText(row.data(Board::Right)),
                         shortText(row.data(Board::Strike).toDecimal()),
                         cellText(row.data(Board::Bid)), cellText(row.data(Board::BidSize)),
                         cellText(row.data(Board::Ask)), cellText(row.data(Board::AskSize)),
                         cellText(row.data(Board::Spread)),
                         clockText(row.data(Board::Time).toInteger())});
    }
    if (!columns.isEmpty())
        pickColumns(lines, columns);
    return alignedText(lines);
}

QString smileTables(const Board& board)
{
    std::map<int, std::vector<QStringList>> smiles;
    for (const Record& row : *board.views()[Board::TwoSided].index) {
        const int expiry = row.data(Board::Expiry).toInteger();
        const bool isPut = row.data(Board::Right).toString() == QLatin1String("P");
        const bool isBelow = row.data(Board::Strike).toDouble() < board.futureMid(expiry);
        std::vector<QStringList>& lines = smiles[expiry];
        if (lines.empty())
            lines.push_back({QStringLiteral("strike"), QString(), QStringLiteral("volatility")});
        const Field volatility = row.data(Board::Volatility);
        if (isPut == isBelow && !volatility.isNull())
            lines.push_back({shortText(row.data(Board::Strike).toDecimal()),
                             cellText(row.data(Board::Right)),
                             QString::number(volatility.toDouble(), 'f', 4)});
    }
    QString text;
    for (const auto& [expiry, lines] : smiles)
        text += QStringLiteral("smile of %1, future at %2\n")
                    .arg(expiry)
                    .arg(board.futureMid(expiry), 0, 'f', 3) +
                alignedText(lines);
    return text;
}

ProgressLine::ProgressLine()
    : isTerminal(isatty(STDERR_FILENO) && isatty(STDOUT_FILENO))
{}

ProgressLine::~ProgressLine()
{
    clear();
}

bool ProgressLine::isDue() const
{
    constexpr int intervalMs = 50;
    return isTerminal && (!sinceShown.isValid() || sinceShown.elapsed() >= intervalMs);
}

void ProgressLine::show(const QString& text)
{
    if (!isTerminal)
        return;
    std::fprintf(stderr, "\r%s\033[K", qPrintable(text));
    std::fflush(stderr);
    isShown = true;
    sinceShown.start();
}

void ProgressLine::clear()
{
    if (!isShown)
        return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    isShown = false;
}
