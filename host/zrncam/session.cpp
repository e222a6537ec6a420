#include "session.h"

#include "common/progress.h"

#include <algorithm>

std::shared_ptr<zrn::Driver> loadDriver(const GlobalOptions& options)
{
    return zrn::Driver::load(options.plugin);
}

QJsonObject driverJson(const zrn::Driver& driver)
{
    return {{QStringLiteral("name"), QString::fromStdString(driver.name())},
            {QStringLiteral("version"), QString::fromStdString(driver.version())},
            {QStringLiteral("path"), QString::fromLocal8Bit(driver.file().c_str())}};
}

Session::Session(const GlobalOptions& options)
    : m_options(options)
    , m_driver(loadDriver(options))
{
}

std::vector<zrn::CameraChoice> Session::choices() const
{
    std::vector<zrn::CameraChoice> choices;
    for (const std::string& text : m_options.serials) {
        const std::string serial = zrn::serialFromUser(text);
        if (std::ranges::find(choices, serial, &zrn::CameraChoice::serial) == choices.end()) {
            choices.push_back({serial, {}, -1});
        }
    }
    if (m_options.all) {
        if (m_driver->canChoose()) {
            for (const std::string& port : zrn::CameraSearch(*m_driver).freePorts(patience())) {
                choices.push_back({{}, port, -1});
            }
        } else {
            const int count = m_driver->openAllOnce();
            for (int index = 0; index < count; ++index) {
                choices.push_back({{}, {}, index});
            }
            if (count < 1) {
                throw zrn::noCameraOnBus();
            }
        }
    }
    if (choices.empty()) {
        choices.push_back({{}, m_options.port, m_options.index});
    }
    return choices;
}

CameraPointer Session::connect(const zrn::CameraChoice& choice) const
{
    return zrn::Camera::open(m_driver, choice, patience());
}

zrn::SearchPatience Session::patience() const
{
    zrn::SearchPatience patience;
    patience.onWaiting = [isQuiet = m_options.quiet](const zrn::Error& error) {
        zrnhost::Progress(isQuiet).note(
            QStringLiteral("waiting: %1").arg(QString::fromUtf8(error.what())));
    };
    return patience;
}
