// SPDX-License-Identifier: MIT
#include "theme.h"

#include <QApplication>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QPalette>
#include <QStyleFactory>

namespace {

const Theme Dark{true,     0x101418, 0x161b21, 0x1e252d, 0x232b34,
                 0xdde3ea, 0x8d98a5, 0x4a5561, 0xe3b45c, 0x24405c,
                 0x2fa57a, 0xd2575c, 0x1b222a, 0x332c1b, {0x5aa9e6, 0xc792ea}};

const Theme Light{false,    0xe9ecf0, 0xffffff, 0xf3f5f7, 0xe3e7ec,
                  0x1a222b, 0x5d6875, 0xb3bcc6, 0x8f5f00, 0xcfe3f8,
                  0x1d9a68, 0xd04a50, 0xeef3f8, 0xfdf0cf, {0x1f6fb8, 0x8a3fb5}};

const Theme* currentTheme = &Dark;

/// The first family there is that is narrow and has digits of one width.
QString figureFamily()
{
    const QFontDatabase database;
    const QStringList installed = database.families();
    for (const char* name : {"Roboto Condensed", "IBM Plex Sans Condensed", "DejaVu Sans Condensed",
                             "Noto Sans Condensed", "DejaVu Sans", "Noto Sans"}) {
        const QString family = QString::fromLatin1(name);
        if (!installed.contains(family))
            continue;
        const QFontMetrics metrics{QFont(family)};
        if (metrics.horizontalAdvance(QLatin1Char('1')) ==
            metrics.horizontalAdvance(QLatin1Char('8')))
            return family;
    }
    return QFontDatabase::systemFont(QFontDatabase::FixedFont).family();
}

QFont sized(int pixels, QFont::Weight weight)
{
    static const QString family = figureFamily();
    QFont font(family);
    font.setPixelSize(pixels);
    font.setWeight(weight);
    font.setKerning(false); // columns of digits stay columns
    return font;
}

QPalette paletteOf(const Theme& theme)
{
    QPalette palette;
    palette.setColor(QPalette::Window, theme.window);
    palette.setColor(QPalette::WindowText, theme.text);
    palette.setColor(QPalette::Base, theme.base);
    palette.setColor(QPalette::AlternateBase, theme.raised);
    palette.setColor(QPalette::Text, theme.text);
    palette.setColor(QPalette::PlaceholderText, theme.quiet);
    palette.setColor(QPalette::Button, theme.raised);
    palette.setColor(QPalette::ButtonText, theme.text);
    palette.setColor(QPalette::ToolTipBase, theme.raised);
    palette.setColor(QPalette::ToolTipText, theme.text);
    palette.setColor(QPalette::Highlight, theme.selection);
    palette.setColor(QPalette::HighlightedText, theme.text);
    palette.setColor(QPalette::Link, theme.accent);
    palette.setColor(QPalette::Light, theme.raised);
    palette.setColor(QPalette::Midlight, theme.line);
    palette.setColor(QPalette::Mid, theme.line);
    palette.setColor(QPalette::Dark, theme.line);
    palette.setColor(QPalette::Shadow, theme.window);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, theme.faint);
    return palette;
}

const char* const Sheet = R"(
QMenuBar { background: @window; color: @text; padding: 1px 4px; }
QMenuBar::item { padding: 4px 9px; border-radius: 3px; background: transparent; }
QMenuBar::item:selected, QMenuBar::item:pressed { background: @raised; }
QMenu { background: @raised; color: @text; border: 1px solid @line; padding: 4px 0; }
QMenu::item { padding: 4px 28px 4px 24px; }
QMenu::item:selected { background: @selection; }
QMenu::item:disabled { color: @faint; }
QMenu::separator { height: 1px; background: @line; margin: 4px 0; }
QMenu::indicator { width: 7px; height: 7px; left: 9px; border-radius: 4px; }
QMenu::indicator:checked { background: @accent; }
QMainWindow::separator { background: @window; width: 5px; height: 5px; }
QMainWindow::separator:hover { background: @accent; }
QHeaderView { background: @base; border: none; }
QHeaderView::section { background: @base; color: @quiet; border: none;
    border-bottom: 1px solid @line; padding: 2px 6px; }
QHeaderView::section:hover { color: @text; background: @raised; }
QHeaderView::section:checked { color: @quiet; }
QHeaderView::up-arrow, QHeaderView::down-arrow { width: 0; height: 0; }
QScrollBar:vertical { background: transparent; width: 9px; margin: 0; }
QScrollBar:horizontal { background: transparent; height: 9px; margin: 0; }
QScrollBar::handle { background: @line; border-radius: 4px; min-height: 28px; min-width: 28px; }
QScrollBar::handle:hover { background: @faint; }
QScrollBar::add-line, QScrollBar::sub-line { width: 0; height: 0; }
QScrollBar::add-page, QScrollBar::sub-page { background: transparent; }
QLineEdit { background: @raised; border: 1px solid @line;
    border-radius: 3px; padding: 2px 7px; selection-background-color: @selection;
    selection-color: @text; }
QLineEdit:focus { border-color: @accent; }
QPushButton, QToolButton { background: transparent; color: @quiet; border: 1px solid transparent;
    border-radius: 3px; padding: 3px 9px; }
QPushButton:hover, QToolButton:hover { background: @raised; color: @text; }
QPushButton:checked, QToolButton:checked { background: @raised; color: @text; }
QPushButton:focus, QToolButton:focus { border-color: @accent; }
QPushButton#primary { background: @raised; color: @text; border-color: @line; }
QPushButton#primary:focus { border-color: @accent; }
QPushButton:disabled, QToolButton:disabled { color: @faint; }
QProgressBar { background: @line; border: none; border-radius: 2px; max-height: 4px;
    min-height: 4px; }
QProgressBar::chunk { background: @accent; border-radius: 2px; }
QToolTip { background: @raised; color: @text; border: 1px solid @line; padding: 3px 6px; }
#pane { background: @base; }
#strip { background: @base; }
#title { color: @text; }
#caption { color: @quiet; }
#badge { color: @accent; }
#trouble { color: @down; }
)";

} // namespace

const Theme& Theme::current()
{
    return *currentTheme;
}

void Theme::apply(QApplication& application, bool dark)
{
    currentTheme = dark ? &Dark : &Light;
    const Theme& theme = *currentTheme;
    application.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    application.setPalette(paletteOf(theme));
    application.setFont(figures());
    QString sheet = QString::fromLatin1(Sheet);
    const std::pair<const char*, QColor> colours[] = {
        {"@window", theme.window}, {"@base", theme.base},     {"@raised", theme.raised},
        {"@line", theme.line},     {"@text", theme.text},     {"@quiet", theme.quiet},
        {"@faint", theme.faint},   {"@accent", theme.accent}, {"@selection", theme.selection},
        {"@down", theme.down}};
    for (const auto& [name, colour] : colours)
        sheet.replace(QLatin1String(name), colour.name());
    application.setStyleSheet(sheet);
}

QFont Theme::figures()
{
    static const QFont font = sized(13, QFont::Normal);
    return font;
}

QFont Theme::strongFigures()
{
    static const QFont font = sized(13, QFont::Bold);
    return font;
}

QFont Theme::captions()
{
    static const QFont font = sized(12, QFont::Normal);
    return font;
}

int Theme::rowHeight()
{
    static const int height = QFontMetrics(figures()).height() + 4;
    return height;
}

QColor blend(const QColor& below, const QColor& top, double weight)
{
    const auto mix = [weight](int a, int b) { return int(a + (b - a) * weight + 0.5); };
    return QColor(mix(below.red(), top.red()), mix(below.green(), top.green()),
                  mix(below.blue(), top.blue()));
}
