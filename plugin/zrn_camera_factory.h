#pragma once

#include "factory_interface.h"
#include "zrn_camera.h"

#include <QList>
#include <QMutex>
#include <QReadWriteLock>
#include <QVariantMap>
#include <QVersionNumber>

#include <optional>
#include <string>

/// Root object of the plugin.
///
/// Ownership: owns the cameras that it creates and, through CZRNCamera's static hooks, the node
/// table. A camera that a host gives to a parent of its own, and that dies with it, tells its
/// factory. Locking: `m_listLock` guards the list and its count, and is not held while a camera is
/// deleted. Enumeration has a lock of its own, and does not wait for `m_listLock`.
class CZRNCameraFactory : public IFactory
{
    Q_OBJECT
    Q_INTERFACES(IFactory)
    Q_PLUGIN_METADATA(IID "Quorvane.Hardware.ZRNCameraFactory.v2.0" FILE "zrncamera.json")

public:
    explicit CZRNCameraFactory(QObject* parent = nullptr);
    /// Stops and deletes every camera that is left, then closes the enumerated devices.
    ~CZRNCameraFactory() override;

    /// "ZRNCamera".
    Q_INVOKABLE QString name() override;
    Q_INVOKABLE QVersionNumber version() override;
    /// @return how many cameras were found and opened.
    Q_INVOKABLE int enumDevice() override;
    /// Makes an unconnected camera. Needs neither enumeration nor device.
    Q_INVOKABLE DeviceInterface* createDevice() override;
    /// @return NoCamera for a null pointer, NothingEnumerated for a pointer that is not of this
    /// factory; both leave @p device as it is.
    Q_INVOKABLE ErrorCode deleteDevice(DeviceInterface*& device) override;

    /// The cameras that this factory created and has not deleted.
    QList<CZRNCamera*> cameras();

protected:
    QList<CZRNCamera*> m_cameraList;
    QReadWriteLock m_listLock;
    qint32 m_cameraCount = 0; ///< cameras in the list

private:
    /// For the end of the factory.
    std::optional<CZRNCamera*> takeFirst();
    /// Takes a camera out of the list. @return whether it was there.
    bool forget(const CZRNCamera* camera);
    /// What the dynamic properties tell that enumerating sets.
    struct Findings {
        std::string guards; ///< how this process is protected from libuvc's faults
        QVariantMap deviceSerials;

        bool operator==(const Findings&) const = default;
    };
    /// Sets them, at once on the factory's own thread and through its event loop on another one.
    void publish(const Findings& findings);
    void setFindings();

    QMutex m_findingsMutex;
    Findings m_findings; ///< of the last enumeration; under m_findingsMutex
};
