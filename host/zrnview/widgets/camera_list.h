#pragma once

#include <QWidget>

class QLabel;
class QListWidget;
class QListWidgetItem;
class QPushButton;

namespace zrnview
{

class Bench;
class CameraDevice;

/// All cameras on the bus, with their state; a tick takes a camera and shows it in the window.
class CameraList : public QWidget
{
    Q_OBJECT

public:
    /// @param bench outlives the list
    explicit CameraList(Bench& bench, QWidget* parent = nullptr);

    QListWidget& list() { return *m_list; }
    /// Ticks or unticks a camera without telling anybody.
    void setShown(const CameraDevice& device, bool shown);

signals:
    void shownChanged(zrnview::CameraDevice* device, bool shown);
    void chosen(zrnview::CameraDevice* device);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void fitStatus();
    void addDevice(CameraDevice* device);
    void updateEntry(const CameraDevice& device);
    void updateOthers();
    void updateStatus();
    QString useText(const CameraDevice& device) const;
    QListWidgetItem* entryOf(const CameraDevice& device) const;
    CameraDevice* deviceOf(const QListWidgetItem& entry) const;

    Bench& m_bench;
    QListWidget* m_list;
    QLabel* m_status;
    QPushButton* m_look;
};

/// What the bus asks the user to do; empty when all is well.
QString adviceOf(const Bench& bench);

/// One or two words on how a camera is doing.
QString stateText(const CameraDevice& device);

} // namespace zrnview
