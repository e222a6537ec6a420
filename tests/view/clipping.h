#pragma once

#include <QAbstractButton>
#include <QAbstractSpinBox>
#include <QComboBox>
#include <QLabel>
#include <QScrollArea>

/// Whether the widget's text has less room than it needs, in itself or in what scrolls it up and
/// down.
inline bool isClipped(const QWidget& widget)
{
    if (widget.inherits("zrnview::ElidedLabel")) {
        return false; // gives way on purpose, and tells the rest in its tool tip
    }
    if (widget.width() < widget.minimumSizeHint().width()) {
        return true;
    }
    const auto* label = qobject_cast<const QLabel*>(&widget);
    if (label && label->wordWrap() && widget.height() < label->heightForWidth(widget.width())) {
        return true;
    }
    for (const QWidget* outer = widget.parentWidget(); outer; outer = outer->parentWidget()) {
        const auto* area = qobject_cast<const QScrollArea*>(outer);
        if (area && widget.mapTo(area->viewport(), QPoint(widget.width(), 0)).x() >
                        area->viewport()->width()) {
            return true;
        }
    }
    return false;
}

/// What cannot be read in full, of all that the window shows.
inline QStringList clippedTexts(const QWidget& window)
{
    QStringList clipped;
    const auto look = [&clipped](const auto& widgets) {
        for (const auto* widget : widgets) {
            const bool hasText = !widget->property("text").toString().isEmpty();
            if (widget->isVisible() && hasText && isClipped(*widget)) {
                clipped += QStringLiteral("%1 '%2' %3")
                               .arg(QLatin1String(widget->metaObject()->className()),
                                    widget->property("text").toString(), widget->accessibleName());
            }
        }
    };
    look(window.findChildren<QLabel*>());
    look(window.findChildren<QAbstractButton*>());
    look(window.findChildren<QAbstractSpinBox*>());
    look(window.findChildren<QComboBox*>());
    return clipped;
}
