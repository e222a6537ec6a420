#pragma once

#include "client/driver.h"

#include <QElapsedTimer>
#include <QMetaType>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <optional>
#include <set>

namespace zrnview
{

/// Gives the driver. Throws std::exception, whose text is shown, when there is none.
using DriverMaker = std::function<std::shared_ptr<zrn::Driver>()>;

/// The cameras on the bus as the window sees them.
struct BusView {
    struct Entry {
        zrn::BusCamera camera;

        bool operator==(const Entry& other) const;
        [[nodiscard]] QString port() const { return QString::fromStdString(camera.port); }
        [[nodiscard]] QString place() const { return QString::fromStdString(camera.place()); }
        [[nodiscard]] QString serial() const { return QString::fromStdString(camera.serial); }
        [[nodiscard]] bool isFree() const
        {
            return camera.accessible && camera.use != zrn::Use::Held;
        }
    };
    std::vector<Entry> entries;

    bool operator==(const BusView& other) const = default;
    /// Device nodes of those that this user may not open.
    [[nodiscard]] QStringList blocked() const;
};

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
    void busChanged(const zrnview::BusView& bus);

private:
    void watchBus();

    DriverMaker m_makeDriver;
    std::shared_ptr<zrn::Driver> m_driver; // once it is loaded
    std::optional<BusView> m_glance;       // the bus without its holders, as it last was
    std::optional<BusView> m_bus;          // as it was last told
    QElapsedTimer m_holdersSeen;
    QTimer m_timer;
};

} // namespace zrnview

Q_DECLARE_METATYPE(zrnview::BusView)
Q_DECLARE_METATYPE(zrn::BusCamera)
Q_DECLARE_METATYPE(std::shared_ptr<zrn::Driver>)
