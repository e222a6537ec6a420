#include "zrnview/widgets/notice_bar.h"

#include "zrnview/widgets/theme.h"

#include <QHBoxLayout>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

namespace zrnview
{
namespace
{

QColor colourOf(NoticeBar::Tone tone, const Colours& colours)
{
    switch (tone) {
    case NoticeBar::Tone::Information:
        return colours.imageA;
    case NoticeBar::Tone::Attention:
        return colours.attention;
    case NoticeBar::Tone::Fault:
        return colours.fault;
    }
    return colours.fault;
}

} // namespace

NoticeBar::NoticeBar(QWidget* parent)
    : QFrame(parent)
    , m_what(new QLabel(this))
    , m_remedy(new QLabel(this))
    , m_buttons(new QHBoxLayout)
{
    QFont bold = font();
    bold.setBold(true);
    m_what->setFont(bold);
    for (QLabel* label : {m_what, m_remedy}) {
        label->setWordWrap(true);
        label->setTextFormat(Qt::PlainText);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    }
    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    texts->addWidget(m_what);
    texts->addWidget(m_remedy);
    auto* layout = new QHBoxLayout(this);
    const int space = fontMetrics().averageCharWidth();
    layout->setContentsMargins(2 * space, space, space, space);
    layout->addLayout(texts, 1);
    layout->addLayout(m_buttons);
    hide();
}

void NoticeBar::show(Tone tone, const QString& what, const QString& remedy)
{
    m_tone = tone;
    m_what->setText(what);
    m_remedy->setText(remedy);
    m_remedy->setVisible(!remedy.isEmpty());
    setAccessibleName(what);
    setVisible(true);
    update();
}

void NoticeBar::clear()
{
    m_what->clear();
    m_remedy->clear();
    hide();
}

QPushButton* NoticeBar::addButton(const QString& text)
{
    auto* button = new QPushButton(text, this);
    m_buttons->addWidget(button);
    return button;
}

void NoticeBar::paintEvent(QPaintEvent*)
{
    const QColor colour = colourOf(m_tone, coloursFor(palette()));
    QPainter painter(this);
    QColor tint = colour;
    tint.setAlpha(36);
    painter.fillRect(rect(), tint);
    painter.fillRect(QRect(0, 0, fontMetrics().averageCharWidth() / 2 + 1, height()), colour);
}

} // namespace zrnview
