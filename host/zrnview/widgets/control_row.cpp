#include "zrnview/widgets/control_row.h"

#include "zrnview/widgets/explanation.h"
#include "zrnview/widgets/theme.h"

#include <QEvent>
#include <QGridLayout>
#include <QLocale>
#include <QSignalBlocker>

#include <algorithm>
#include <cmath>
#include <limits>

namespace zrnview
{
namespace
{

constexpr int logarithmicSteps = 1000;
constexpr int pageSteps = 10;

int boundedInt(qint64 value)
{
    return static_cast<int>(std::clamp<qint64>(value, std::numeric_limits<int>::min(),
                                               std::numeric_limits<int>::max()));
}

} // namespace

ControlRow::ControlRow(Setting setting, QGridLayout& grid, QWidget* parent)
    : QObject(parent)
    , m_info(infoOf(setting))
    , m_label(new QLabel(QString::fromUtf8(m_info.label), parent))
    , m_slider(new QSlider(Qt::Horizontal, parent))
    , m_field(new NumberField(parent))
    , m_readBack(new QLabel(parent))
    , m_message(new QLabel(parent))
    , m_minimum(m_info.minimum)
    , m_sliderMaximum(m_info.usualMaximum)
{
    QString tip = QString::fromUtf8(m_info.tip);
    if (*m_info.carrier) {
        tip += tr("; lies in the UVC control %1").arg(QString::fromUtf8(m_info.carrier));
    }
    tip += QStringLiteral(". ") + describeEffects(setting);
    for (QWidget* widget : {static_cast<QWidget*>(m_label), static_cast<QWidget*>(m_slider),
                            static_cast<QWidget*>(m_field), static_cast<QWidget*>(m_readBack)}) {
        widget->setToolTip(tip);
        widget->installEventFilter(this);
    }
    m_label->setBuddy(m_field);
    m_slider->setAccessibleName(m_label->text());
    m_slider->setMinimumWidth(m_label->fontMetrics().averageCharWidth() * 12);
    m_field->setAccessibleName(m_label->text());
    m_field->setGroupSeparatorShown(true);
    // Rows of different groups stand in one line.
    m_label->setMinimumWidth(m_label->fontMetrics().horizontalAdvance(tr("Sharpness ")));
    m_field->setMinimumWidth(m_field->fontMetrics().horizontalAdvance(tr("000,000 µs")) +
                             m_field->fontMetrics().averageCharWidth() * 4);
    if (*m_info.unit) {
        m_field->setSuffix(QLatin1Char(' ') + QString::fromUtf8(m_info.unit));
    }
    m_readBack->setMinimumWidth(m_readBack->fontMetrics().averageCharWidth() * 11);
    m_readBack->setAccessibleName(tr("%1 read back").arg(m_label->text()));
    m_message->setWordWrap(true);
    m_message->hide();

    const int row = grid.rowCount();
    grid.addWidget(m_label, row, 0);
    grid.addWidget(m_slider, row, 1);
    grid.addWidget(m_field, row, 2);
    grid.addWidget(m_readBack, row, 3);
    grid.addWidget(m_message, row + 1, 0, 1, 4);
    setRange(m_info.minimum, m_info.maximum);

    connect(m_slider, &QSlider::valueChanged, this, [this](int position) {
        m_limitNote.clear();
        ask(valueAt(position));
    });
    connect(m_field, qOverload<int>(&QSpinBox::valueChanged), this,
            [this](int value) { ask(value); });
    const auto noteLimit = [this](const QString& note) {
        m_limitNote = note;
        showMessage();
    };
    connect(m_field, &NumberField::limited, this, noteLimit);
    connect(m_field, &NumberField::edited, this, [noteLimit] { noteLimit(QString()); });
    connect(m_field, &NumberField::cancelled, this, [this] {
        if (m_shown && m_shown->readCode == ErrorCode::Success) {
            place(m_shown->value, true);
        }
    });
    connect(m_field, &NumberField::finished, this, &ControlRow::finished);
}

void ControlRow::setRange(qint64 minimum, qint64 maximum)
{
    const QSignalBlocker fieldBlocker(m_field);
    const QSignalBlocker sliderBlocker(m_slider);
    m_minimum = minimum;
    m_sliderMaximum =
        maximum > m_info.usualMaximum && minimum <= m_info.usualMaximum && !m_logarithmic
            ? m_info.usualMaximum
            : maximum;
    m_field->setRange(boundedInt(minimum), boundedInt(maximum));
    if (m_logarithmic) {
        m_slider->setRange(0, logarithmicSteps);
        m_slider->setPageStep(logarithmicSteps / pageSteps);
    } else {
        // A range that starts below zero keeps its slider where a carrier's byte lies.
        m_minimum = std::max<qint64>(minimum, m_info.key ? 0 : minimum);
        m_slider->setRange(boundedInt(m_minimum), boundedInt(m_sliderMaximum));
        m_slider->setPageStep(std::max(boundedInt((m_sliderMaximum - m_minimum) / pageSteps), 1));
    }
}

void ControlRow::setEnabled(bool enabled)
{
    for (QWidget* widget : {static_cast<QWidget*>(m_slider), static_cast<QWidget*>(m_field),
                            static_cast<QWidget*>(m_readBack)}) {
        widget->setEnabled(enabled);
    }
}

void ControlRow::show(const SettingReading& reading)
{
    m_shown = reading;
    const Colours colours = coloursFor(m_label->palette());
    if (reading.readCode != ErrorCode::Success) {
        m_readBack->setText(tr("unreadable"));
        setTextColour(*m_readBack, colours.fault);
    } else {
        const bool differs = reading.written && reading.value != reading.wanted;
        m_readBack->setText((differs ? QStringLiteral("≠ ") : QStringLiteral("= ")) +
                            QLocale().toString(reading.value));
        setTextColour(*m_readBack, differs ? colours.attention : colours.dimText);
        // While the slider is held, what it shows is the user's wish.
        if (!m_slider->isSliderDown()) {
            // A field that is being edited is left alone by mere refreshes.
            place(reading.value, reading.written || !m_field->hasFocus());
        }
    }
    showMessage();
}

void ControlRow::showMessage()
{
    const Colours colours = coloursFor(m_label->palette());
    const SettingReading reading = m_shown.value_or(SettingReading());
    const ErrorCode code =
        reading.writeCode != ErrorCode::Success ? reading.writeCode : reading.readCode;
    if (code == ErrorCode::Success) {
        m_message->setText(m_limitNote);
        setTextColour(*m_message, colours.attention);
    } else {
        const QString what = reading.writeCode != ErrorCode::Success
                                 ? tr("%1 was refused").arg(QLocale().toString(reading.wanted))
                                 : tr("Reading failed");
        m_message->setText(explained(what, code));
        setTextColour(*m_message, colours.fault);
    }
    m_message->setVisible(!m_message->text().isEmpty());
}

bool ControlRow::eventFilter(QObject* watched, QEvent* event)
{
    switch (event->type()) {
    case QEvent::Enter:
    case QEvent::FocusIn:
        emit pointedAt(m_info.setting, true);
        break;
    case QEvent::Leave:
    case QEvent::FocusOut:
        emit pointedAt(m_info.setting, m_field->hasFocus() || m_slider->hasFocus());
        break;
    case QEvent::PaletteChange:
        // Of one widget only: showing changes the palettes of others.
        if (watched == m_slider && m_shown) {
            show(SettingReading(*m_shown));
        }
        break;
    case QEvent::Wheel:
        // The wheel scrolls the panel; only a row in use takes it.
        if (!m_field->hasFocus() && !m_slider->hasFocus()) {
            event->ignore();
            return true;
        }
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

int ControlRow::positionOf(qint64 value) const
{
    return m_logarithmic
               ? logarithmicPosition(static_cast<double>(value),
                                     std::max<double>(static_cast<double>(m_minimum), 1),
                                     static_cast<double>(m_sliderMaximum), logarithmicSteps)
               : boundedInt(value);
}

qint64 ControlRow::valueAt(int position) const
{
    return m_logarithmic ? std::llround(logarithmicValue(
                               position, std::max<double>(static_cast<double>(m_minimum), 1),
                               static_cast<double>(m_sliderMaximum), logarithmicSteps))
                         : position;
}

void ControlRow::place(qint64 value, bool intoField)
{
    const QSignalBlocker fieldBlocker(m_field);
    const QSignalBlocker sliderBlocker(m_slider);
    m_slider->setValue(positionOf(value));
    if (intoField) {
        m_field->setValue(boundedInt(value));
    }
}

void ControlRow::ask(qint64 value)
{
    place(value, true);
    emit requested(m_info.setting, value);
}

} // namespace zrnview
