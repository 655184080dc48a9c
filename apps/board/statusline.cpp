// SPDX-License-Identifier: MIT
#include "statusline.h"

#include "theme.h"

#include <QPainter>

namespace {

/// What stands before each figure, and the widest text it has room for.
constexpr struct
{
    const char* caption;
    const char* widest;
} Places[StatusLine::FigureCount] = {{QT_TRANSLATE_NOOP("StatusLine", "updates/s"), "000,000"},
                                     {QT_TRANSLATE_NOOP("StatusLine", "frame ms"), "000.0"},
                                     {QT_TRANSLATE_NOOP("StatusLine", "played"), "100%"},
                                     {QT_TRANSLATE_NOOP("StatusLine", "held"), "00,000"},
                                     {QT_TRANSLATE_NOOP("StatusLine", "delta"), "+0,000.0"},
                                     {QT_TRANSLATE_NOOP("StatusLine", "vega"), "+00,000"},
                                     {QT_TRANSLATE_NOOP("StatusLine", "theta"), "+00,000"}};

constexpr int Gap = 6;
constexpr int LineMargin = 12;

} // namespace

StatusLine::StatusLine(QWidget* parent)
    : QWidget(parent)
    , figures(FigureCount)
{
    setObjectName(QStringLiteral("statusLine"));
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize StatusLine::sizeHint() const
{
    return {400, QFontMetrics(Theme::captions()).height() + 8};
}

void StatusLine::setFigure(Figure figure, const QString& text)
{
    if (figures[figure] == text)
        return;
    figures[figure] = text;
    update();
}

void StatusLine::tell(const QString& text, bool isTrouble)
{
    said = text;
    isTroubled = isTrouble;
    setAccessibleDescription(text);
    setToolTip(text);
    update();
}

void StatusLine::paintEvent(QPaintEvent*)
{
    const Theme& theme = Theme::current();
    QPainter painter(this);
    painter.fillRect(rect(), theme.window);
    painter.setFont(Theme::captions());
    const QFontMetrics metrics(Theme::captions());
    int right = width() - LineMargin;
    for (int i = FigureCount; i-- > 0;) {
        if (figures[i].isEmpty())
            continue;
        const int figureWidth = metrics.horizontalAdvance(QLatin1String(Places[i].widest));
        painter.setPen(theme.text);
        painter.drawText(QRect(right - figureWidth, 0, figureWidth, height()),
                         Qt::AlignRight | Qt::AlignVCenter, figures[i]);
        right -= figureWidth + Gap;
        const QString caption = tr(Places[i].caption);
        const int captionWidth = metrics.horizontalAdvance(caption);
        painter.setPen(theme.quiet);
        painter.drawText(QRect(right - captionWidth, 0, captionWidth, height()),
                         Qt::AlignRight | Qt::AlignVCenter, caption);
        right -= captionWidth + 2 * LineMargin;
    }
    painter.setPen(isTroubled ? theme.down : theme.quiet);
    const int room = right - LineMargin;
    painter.drawText(QRect(LineMargin, 0, room, height()), Qt::AlignVCenter,
                     metrics.elidedText(said, Qt::ElideMiddle, room));
}
