#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

class QWidget;

namespace zrnview
{

enum class Theme { System, Light, Dark };

/// Gives the whole application one look. Call in the GUI thread, any time.
void applyTheme(Theme theme);

/// Colours with a meaning, chosen so that they read on the palette's background.
struct Colours {
    QColor imageA;
    QColor imageB;
    QColor difference;
    QColor good;
    QColor attention;
    QColor fault;
    QColor dark;   ///< marks pixels at level 0
    QColor bright; ///< marks pixels at level 255
    QColor grid;
    QColor dimText;
    QColor plotBackground;
    QColor imageBackground;
};

Colours coloursFor(const QPalette& palette);

/// The font of the scales in plots.
QFont smallFont(QFont font);

/// Sets the text colour of a label.
void setTextColour(QWidget& label, const QColor& colour);

} // namespace zrnview
