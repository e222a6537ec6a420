#include "zrnview/widgets/carrier_view.h"

#include "zrnview/widgets/theme.h"

#include <QPainter>

#include <algorithm>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr auto shownAfterWrite = 2s;

} // namespace

CarrierView::CarrierView(QWidget* parent)
    : QWidget(parent)
    , m_fade(this)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName(tr("Sharing of the UVC controls"));
    setToolTip(
        tr("The camera keeps its four colour gains in the UVC controls gamma, sharpness, hue "
           "and saturation. Both columns of a row are the same value in the camera. Writing "
           "a colour gain writes all four rows."));
    m_fade.setSingleShot(true);
    m_fade.setInterval(shownAfterWrite);
    connect(&m_fade, &QTimer::timeout, this, [this] {
        m_written.reset();
        update();
    });
}

void CarrierView::show(const SettingReading& reading)
{
    m_readings[reading.setting] = reading;
    if (reading.written && carrierOf(reading.setting)) {
        m_written = reading.setting;
        m_fade.start();
    }
    update();
}

void CarrierView::preview(std::optional<Setting> setting)
{
    m_preview = setting && carrierOf(*setting) ? setting : std::nullopt;
    update();
}

QString CarrierView::sentence() const
{
    const std::optional<Setting> setting = marked();
    return setting ? QStringLiteral("%1 %2").arg(QString::fromUtf8(infoOf(*setting).label),
                                                 describeEffects(*setting))
                   : QString();
}

QSize CarrierView::sizeHint() const
{
    // A heading, the rows, and two lines for the sentence.
    const int rows = static_cast<int>(carriers().size()) + 1;
    return {fontMetrics().averageCharWidth() * 44, rows * rowHeight() + 3 * fontMetrics().height()};
}

std::optional<Setting> CarrierView::marked() const
{
    return m_written ? m_written : m_preview;
}

CarrierView::Mark CarrierView::markOf(Setting setting) const
{
    const std::optional<Setting> chosen = marked();
    if (!chosen) {
        return Mark::None;
    }
    if (*chosen == setting) {
        return Mark::Chosen;
    }
    const auto holds = [setting](const std::vector<Setting>& list) {
        return std::find(list.begin(), list.end(), setting) != list.end();
    };
    const Effects effects = effectsOf(*chosen);
    return holds(effects.changed)     ? Mark::Changed
           : holds(effects.rewritten) ? Mark::Rewritten
                                      : Mark::None;
}

int CarrierView::rowHeight() const
{
    return fontMetrics().height() * 3 / 2;
}

void CarrierView::paintEvent(QPaintEvent*)
{
    const Colours colours = coloursFor(palette());
    QPainter painter(this);
    const int first = width() * 3 / 10;
    const int second = width() * 65 / 100;
    const int height = rowHeight();
    const auto cell = [&](int row, int column) {
        const int left = column == 0 ? 0 : column == 1 ? first : second;
        const int right = column == 0 ? first : column == 1 ? second : width();
        return QRect(left, row * height, right - left - 2, height - 2);
    };
    painter.setPen(colours.dimText);
    painter.drawText(cell(0, 0), Qt::AlignVCenter, tr("UVC control"));
    painter.drawText(cell(0, 1), Qt::AlignVCenter, tr("as a setting"));
    painter.drawText(cell(0, 2), Qt::AlignVCenter, tr("as a colour gain"));
    int row = 1;
    for (const CarrierRow& carrier : carriers()) {
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(cell(row, 0), Qt::AlignVCenter, QString::fromUtf8(carrier.name));
        if (carrier.hasDirect) {
            paintCell(painter, cell(row, 1), carrier.direct);
        }
        paintCell(painter, cell(row, 2), carrier.colourGain);
        ++row;
    }
    painter.setPen(colours.dimText);
    painter.drawText(QRect(0, row * height, width(), QWidget::height() - row * height),
                     Qt::TextWordWrap, sentence());
}

void CarrierView::paintCell(QPainter& painter, const QRect& cell, Setting setting) const
{
    const Colours colours = coloursFor(palette());
    const Mark mark = markOf(setting);
    const QColor colour = mark == Mark::Chosen    ? colours.imageA
                          : mark == Mark::Changed ? colours.attention
                                                  : colours.dimText;
    QColor fill = mark == Mark::None ? colours.plotBackground : colour;
    if (mark != Mark::None) {
        fill.setAlpha(mark == Mark::Rewritten ? 40 : 70);
    }
    painter.fillRect(cell, fill);
    painter.setPen(mark == Mark::None ? colours.grid : colour);
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(cell.adjusted(0, 0, -1, -1));

    const QRect inner = cell.adjusted(fontMetrics().averageCharWidth() / 2, 0,
                                      -fontMetrics().averageCharWidth() / 2, 0);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(inner, Qt::AlignVCenter | Qt::AlignLeft,
                     QString::fromUtf8(infoOf(setting).label));
    const auto found = m_readings.find(setting);
    if (found != m_readings.end()) {
        const bool readable = found->second.readCode == ErrorCode::Success;
        painter.drawText(inner, Qt::AlignVCenter | Qt::AlignRight,
                         readable ? QLocale().toString(found->second.value) : QStringLiteral("?"));
    }
}

} // namespace zrnview
