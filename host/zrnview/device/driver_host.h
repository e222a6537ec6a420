#pragma once

#include "client/bus_watch.h"
#include "client/driver.h"

#include <QElapsedTimer>
#include <QMetaType>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>
#include <set>

namespace zrnview
{

/// Gives the driver. Throws std::exception, whose text is shown, when there is none.
using DriverMaker = std::function<std::shared_ptr<zrn::Driver>()>;

/// Loads the driver, opens cameras one by one and watches the bus, on the thread that this object
/// lives in.
class DriverHost : public QObject
{
    Q_OBJECT

public:
    explicit DriverHost(DriverMaker makeDriver);

public slots:
    void load();
    /// Opens one camera, to be connected by its serial unless that is among those known; answers
    /// with opened().
    void open(zrn::BusCamera camera, const std::set<std::string>& known);
    /// Looks at the bus at once, and tells it even if nothing has changed.
    void lookAgain();

signals:
    void loaded(const std::shared_ptr<zrn::Driver>& driver);
    void loadFailed(const QString& why);
    /// @param camera with its serial; without one if it is in use or refuses
    void opened(const zrn::BusCamera& camera);
    /// @param cameras with their holders
    void busChanged(const std::vector<zrn::BusCamera>& cameras);

private:
    void watchBus();
    void look();

    DriverMaker m_makeDriver;
    std::shared_ptr<zrn::Driver> m_driver; // once it is loaded
    std::unique_ptr<zrn::BusWatch> m_watch;
    std::optional<std::vector<zrn::BusCamera>> m_told;
    QElapsedTimer m_holdersSeen;
    QTimer m_timer;
};

} // namespace zrnview

Q_DECLARE_METATYPE(zrn::BusCamera)
Q_DECLARE_METATYPE(std::vector<zrn::BusCamera>)
Q_DECLARE_METATYPE(std::shared_ptr<zrn::Driver>)
