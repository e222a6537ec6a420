#pragma once

#include "client/camera.h"
#include "command.h"

#include <QJsonObject>

#include <memory>
#include <vector>

using CameraPointer = std::shared_ptr<zrn::Camera>;

/// The driver that the options choose. @throws zrn::Error
std::shared_ptr<zrn::Driver> loadDriver(const GlobalOptions& options);

/// Name, version and file of a driver.
QJsonObject driverJson(const zrn::Driver& driver);

/// The loaded driver, and the cameras that the user chose.
///
/// Thread safety: thread-safe.
class Session
{
public:
    /// @throws zrn::Error
    explicit Session(const GlobalOptions& options);

    zrn::Driver& driver() { return *m_driver; }

    /// The cameras that the options choose. @throws zrn::Error
    std::vector<zrn::CameraChoice> choices() const;
    /// Connects one of them. @throws zrn::Error
    CameraPointer connect(const zrn::CameraChoice& choice) const;
    /// Connects the one camera that the options choose. @throws zrn::Error
    CameraPointer connect() const { return connect(choices().front()); }

private:
    zrn::SearchPatience patience() const;

    const GlobalOptions& m_options;
    const std::shared_ptr<zrn::Driver> m_driver;
};
