#pragma once

#include "zrnview/device/camera_reports.h"
#include "zrnview/widgets/number_field.h"

#include <QLabel>
#include <QSlider>

#include <optional>

class QGridLayout;

namespace zrnview
{

/// One setting with slider, number field and what the camera read back. A value that was refused,
/// or outside of the range, is explained below the row, and the field shows what the camera holds.
class ControlRow : public QObject
{
    Q_OBJECT

public:
    /// Adds the row's widgets below those that the grid has.
    ControlRow(Setting setting, QGridLayout& grid, QWidget* parent);

    /// Narrows field and slider to what the camera accepts.
    void setRange(qint64 minimum, qint64 maximum);
    /// Slider positions at equal ratios instead of equal distances.
    void setLogarithmic(bool logarithmic) { m_logarithmic = logarithmic; }
    void setEnabled(bool enabled);
    /// Shows what the camera answered.
    void show(const SettingReading& reading);

    NumberField& field() { return *m_field; }
    QSlider& slider() { return *m_slider; }
    QString readBack() const { return m_readBack->text(); }
    QString message() const { return m_message->text(); }

signals:
    void requested(zrnview::Setting setting, qint64 value);
    /// The user turns to this row, or leaves it.
    void pointedAt(zrnview::Setting setting, bool pointed);
    /// The input into the field has ended.
    void finished();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    int positionOf(qint64 value) const;
    qint64 valueAt(int position) const;
    void place(qint64 value, bool intoField);
    void ask(qint64 value);
    void showMessage();

    const SettingInfo& m_info;
    std::optional<SettingReading> m_shown;
    QLabel* m_label;
    QSlider* m_slider;
    NumberField* m_field;
    QLabel* m_readBack;
    QLabel* m_message;
    QString m_limitNote; // on a number outside of the range, until the next input
    qint64 m_minimum;
    qint64 m_sliderMaximum;
    bool m_logarithmic = false;
};

} // namespace zrnview
