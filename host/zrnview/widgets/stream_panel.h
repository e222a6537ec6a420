#pragma once

#include "zrnview/device/camera_device.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>

namespace zrnview
{

/// How the driver hands out frames: order, cache, timeout; and the account of the stream.
class StreamPanel : public QWidget
{
    Q_OBJECT

public:
    /// @param device outlives the panel
    explicit StreamPanel(CameraDevice& device, QWidget* parent = nullptr);

    QRadioButton& oldestButton() { return *m_oldest; }
    QRadioButton& newestButton() { return *m_newest; }
    QSpinBox& cacheField() { return *m_cache; }
    QSpinBox& timeoutField() { return *m_timeout; }
    QCheckBox& checkBox(Setting setting)
    {
        return setting == Setting::ExposureCheck ? *m_exposureCheck : *m_gainCheck;
    }
    QPushButton& discardButton() { return *m_discard; }
    QString message() const { return m_message->text(); }

private:
    QWidget* makeOrder();
    QWidget* makeCache();
    QWidget* makeChecks();
    QWidget* makeAccount();
    void show(const SettingReading& reading);
    void explain(const SettingReading& reading);
    void updateHealth();

    CameraDevice& m_device;
    QRadioButton* m_oldest;
    QRadioButton* m_newest;
    QSpinBox* m_cache;
    QSpinBox* m_timeout;
    QCheckBox* m_exposureCheck;
    QCheckBox* m_gainCheck;
    QPushButton* m_discard;
    QLabel* m_message;
    QLabel* m_account;
};

} // namespace zrnview
