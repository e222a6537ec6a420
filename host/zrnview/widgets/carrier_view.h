#pragma once

#include "zrnview/device/camera_reports.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

#include <map>

namespace zrnview
{

/// Shows which settings lie in which UVC control of the camera, what they read, and which of them a
/// setting touches: while the user turns to it, and for a moment after it was written.
class CarrierView : public QWidget
{
    Q_OBJECT

public:
    explicit CarrierView(QWidget* parent = nullptr);

    void show(const SettingReading& reading);
    /// Marks what writing @p setting would touch; nothing unmarks.
    void preview(std::optional<Setting> setting);
    /// One sentence on the setting that is marked; empty if there is none.
    QString sentence() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    enum class Mark { None, Chosen, Changed, Rewritten };

    std::optional<Setting> marked() const;
    Mark markOf(Setting setting) const;
    void paintCell(QPainter& painter, const QRect& cell, Setting setting) const;
    int rowHeight() const;

    std::map<Setting, SettingReading> m_readings;
    std::optional<Setting> m_preview;
    std::optional<Setting> m_written;
    QTimer m_fade;
};

} // namespace zrnview
