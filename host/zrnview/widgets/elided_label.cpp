#include "zrnview/widgets/elided_label.h"

#include <QPainter>

namespace zrnview
{
namespace
{

constexpr int smallestCharacters = 8;

} // namespace

ElidedLabel::ElidedLabel(Qt::TextElideMode elided, QWidget* parent)
    : QLabel(parent)
    , m_elided(elided)
{
}

QSize ElidedLabel::minimumSizeHint() const
{
    const QSize whole = QLabel::minimumSizeHint();
    return {std::min(whole.width(), fontMetrics().averageCharWidth() * smallestCharacters),
            whole.height()};
}

void ElidedLabel::paintEvent(QPaintEvent*)
{
    const QString fitting = fontMetrics().elidedText(text(), m_elided, width());
    setToolTip(fitting == text() ? QString() : text());
    QPainter painter(this);
    painter.setPen(palette().color(foregroundRole()));
    painter.drawText(rect(), Qt::AlignVCenter | Qt::AlignLeft, fitting);
}

} // namespace zrnview
