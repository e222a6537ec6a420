#pragma once

#include "common/usb_bus.h"
#include "zrnview/device/camera_reports.h"

#include <QObject>
#include <QTimer>

#include <functional>

namespace zrnview
{

/// Makes the driver's factory. Throws std::exception, whose text is shown, when there is none.
using FactoryMaker = std::function<std::shared_ptr<IFactory>()>;

/// Reads which cameras the kernel sees.
using BusReader = std::function<std::vector<zrnhost::UsbCamera>()>;

/// What of the bus matters to the window.
struct BusView {
    QString identity;    ///< differs whenever a camera came, went or became accessible
    int usable = 0;      ///< cameras that this user may open
    QStringList blocked; ///< device nodes of those that this user may not open

    bool operator==(const BusView& other) const = default;
};

BusView viewOf(const std::vector<zrnhost::UsbCamera>& cameras);

/// Loads the driver, searches the bus and watches it, on the thread that this object lives in.
class DriverHost : public QObject
{
    Q_OBJECT

public:
    DriverHost(FactoryMaker makeFactory, BusReader readBus);

public slots:
    void load();
    /// Enumerates and connects every camera that is found. The cameras of the search before must
    /// have been given back: enumerating closes them.
    void search();

signals:
    void loaded(const QString& description);
    void loadFailed(const QString& why);
    void searched(const std::vector<zrnview::ConnectedCameraPointer>& found);
    void busChanged(const zrnview::BusView& bus);

private:
    void watchBus();

    FactoryMaker m_makeFactory;
    BusReader m_readBus;
    std::shared_ptr<IFactory> m_factory;
    BusView m_bus;
    bool m_busKnown = false;
    QTimer m_timer;
};

} // namespace zrnview

Q_DECLARE_METATYPE(zrnview::BusView)
