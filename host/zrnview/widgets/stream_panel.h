#pragma once

#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/number_field.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>

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
    NumberField& cacheField() { return *m_cache; }
    NumberField& timeoutField() { return *m_timeout; }
    QCheckBox& checkBox(Setting setting)
    {
        return setting == Setting::ExposureCheck ? *m_exposureCheck : *m_gainCheck;
    }
    QPushButton& discardButton() { return *m_discard; }
    QString message() const { return m_message->text(); }

signals:
    /// The input into a field has ended.
    void finished();

private:
    QWidget* makeOrder();
    QWidget* makeCache();
    QWidget* makeChecks();
    QWidget* makeAccount();
    void show(const SettingReading& reading);
    void explain(const SettingReading& reading);
    void tell(const QString& text, const QColor& colour);
    void updateHealth();

    CameraDevice& m_device;
    QRadioButton* m_oldest;
    QRadioButton* m_newest;
    NumberField* m_cache;
    NumberField* m_timeout;
    QCheckBox* m_exposureCheck;
    QCheckBox* m_gainCheck;
    QPushButton* m_discard;
    QLabel* m_message;
    QString m_limitNote; // on a number outside of a range, until the next input
    QLabel* m_account;
};

} // namespace zrnview
