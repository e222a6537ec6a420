#include "zrnview/widgets/theme.h"

#include <QApplication>
#include <QPainter>
#include <QProxyStyle>
#include <QStyleFactory>
#include <QStyleOption>
#include <QWidget>

namespace zrnview
{
namespace
{

/// What a palette consists of.
struct Shades {
    QRgb button, window, text, disabledText, base, alternateBase, toolTip, highlight, link;
};

constexpr Shades lightShades{0xe9ebee, 0xf3f4f6, 0x1b1e23, 0x8a9099, 0xffffff,
                             0xf2f4f7, 0xfffff0, 0x1f6fc4, 0x1f6fc4};
constexpr Shades darkShades{0x383c43, 0x25282d, 0xe4e7eb, 0x7c828b, 0x1a1c20,
                            0x202328, 0x383c43, 0x3d8fe0, 0x6cb4f5};

QPalette paletteOf(const Shades& shades)
{
    QPalette palette(shades.button, shades.window);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        palette.setColor(role, shades.text);
        palette.setColor(QPalette::Disabled, role, shades.disabledText);
    }
    palette.setColor(QPalette::ToolTipText, shades.text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Base, shades.base);
    palette.setColor(QPalette::AlternateBase, shades.alternateBase);
    palette.setColor(QPalette::ToolTipBase, shades.toolTip);
    palette.setColor(QPalette::Highlight, shades.highlight);
    palette.setColor(QPalette::Link, shades.link);
    return palette;
}

/// Fusion with check boxes and radio buttons that can be seen on a dark background.
class ViewStyle : public QProxyStyle
{
public:
    ViewStyle()
        : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion")))
    {
    }

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override
    {
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        if (element == PE_IndicatorCheckBox || element == PE_IndicatorItemViewItemCheck) {
            painter->save();
            painter->setBrush(Qt::NoBrush);
            painter->setPen(coloursFor(option->palette).dimText);
            painter->drawRect(option->rect.adjusted(0, 0, -1, -1));
            painter->restore();
        } else if (element == PE_IndicatorRadioButton) {
            painter->save();
            painter->setRenderHint(QPainter::Antialiasing);
            painter->setBrush(Qt::NoBrush);
            painter->setPen(coloursFor(option->palette).dimText);
            painter->drawEllipse(QRectF(option->rect).adjusted(0.5, 0.5, -0.5, -0.5));
            painter->restore();
        }
    }
};

} // namespace

void applyTheme(Theme theme)
{
    static const QPalette systemPalette = QApplication::palette();
    QApplication::setStyle(new ViewStyle);
    QApplication::setPalette(theme == Theme::Light  ? paletteOf(lightShades)
                             : theme == Theme::Dark ? paletteOf(darkShades)
                                                    : systemPalette);
}

Colours coloursFor(const QPalette& palette)
{
    const bool onDark = palette.color(QPalette::Window).lightness() < 128;
    Colours colours;
    colours.imageA = onDark ? QColor(0x5a, 0xb4, 0xff) : QColor(0x0b, 0x62, 0xb8);
    colours.imageB = onDark ? QColor(0xff, 0xb0, 0x4d) : QColor(0xa5, 0x52, 0x00);
    colours.difference = onDark ? QColor(0xc5, 0x96, 0xff) : QColor(0x6f, 0x36, 0xb8);
    colours.good = onDark ? QColor(0x5f, 0xd0, 0x7f) : QColor(0x14, 0x7a, 0x38);
    colours.attention = onDark ? QColor(0xff, 0xc2, 0x4a) : QColor(0x95, 0x5f, 0x00);
    colours.fault = onDark ? QColor(0xff, 0x7b, 0x72) : QColor(0xbd, 0x1f, 0x1f);
    colours.dark = onDark ? QColor(0x4d, 0x8d, 0xff) : QColor(0x1f, 0x4f, 0xe0);
    colours.bright = QColor(0xff, 0x3b, 0x30);
    colours.grid = onDark ? QColor(0x3a, 0x3f, 0x47) : QColor(0xd9, 0xdd, 0xe3);
    colours.dimText = onDark ? QColor(0xa2, 0xa9, 0xb3) : QColor(0x5a, 0x62, 0x6e);
    colours.plotBackground = palette.color(QPalette::Base);
    colours.imageBackground = onDark ? QColor(0x12, 0x13, 0x15) : QColor(0x3a, 0x3d, 0x42);
    return colours;
}

QFont smallFont(QFont font)
{
    constexpr double share = 0.8;
    font.setPointSizeF(font.pointSizeF() * share);
    return font;
}

void setTextColour(QWidget& label, const QColor& colour)
{
    QPalette palette = label.palette();
    palette.setColor(QPalette::WindowText, colour);
    label.setPalette(palette);
}

} // namespace zrnview
