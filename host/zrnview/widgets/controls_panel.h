#pragma once

#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/carrier_view.h"
#include "zrnview/widgets/control_row.h"

#include <QPushButton>

namespace zrnview
{

/// Sliders and fields for the image settings of one camera, the sharing of its carriers, and the
/// reset.
class ControlsPanel : public QWidget
{
    Q_OBJECT

public:
    /// @param device outlives the panel
    explicit ControlsPanel(CameraDevice& device, QWidget* parent = nullptr);

    ControlRow& row(Setting setting) { return *m_rows.at(setting); }
    CarrierView& carrierView() { return *m_carriers; }
    QPushButton& resetButton() { return *m_reset; }

signals:
    /// The input into a field has ended.
    void finished();

private:
    void askForReset();
    void updateRanges();
    void updateEnabled();
    void show(const SettingReadings& readings);

    CameraDevice& m_device;
    std::map<Setting, ControlRow*> m_rows;
    QLabel* m_ranges;
    CarrierView* m_carriers;
    QPushButton* m_reset;
};

} // namespace zrnview
