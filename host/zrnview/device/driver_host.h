#pragma once

#include "client/driver.h"
#include "zrnview/device/camera_reports.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>

namespace zrnview
{

/// Gives the driver. Throws std::exception, whose text is shown, when there is none.
using DriverMaker = std::function<std::shared_ptr<zrn::Driver>()>;

/// Whether the camera with a serial is wanted; called on the driver's thread.
using SerialFilter = std::function<bool(const QString&)>;

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
    /// Opens one camera, and connects it if its serial is wanted; answers with opened() or
    /// notOpened().
    void open(zrn::BusCamera camera, const zrnview::SerialFilter& isWanted);
    /// Disconnects a camera that nobody wants.
    void giveBack(const zrnview::ConnectedCameraPointer& connected);
    /// Looks at the bus at once, and tells it even if nothing has changed.
    void lookAgain();

signals:
    void loaded(const QString& description);
    void loadFailed(const QString& why);
    /// @param place that was to be opened
    void opened(const QString& place, const zrnview::ConnectedCameraPointer& connected);
    /// The camera is in use, refuses, or turned out not to be wanted.
    void notOpened(const QString& place);
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
