#include "client/driver.h"

#include "client/camera_object.h"
#include "client/driver_plugin.h"

#include <QStringList>
#include <QThread>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <optional>

namespace zrn
{
namespace
{

using namespace std::chrono_literals;

/// How long what a camera gave for its serial is taken for granted, once it was asked again.
constexpr auto trust = 60s;

/// Has the factory live in the calling thread, to which its properties belong meanwhile.
class Visit
{
public:
    explicit Visit(IFactory& factory)
        : m_factory(factory)
    {
        m_factory.moveToThread(QThread::currentThread());
    }
    ~Visit() { m_factory.moveToThread(nullptr); }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

private:
    IFactory& m_factory;
};

/// A file that a driver was loaded from.
struct DriverFile {
    std::weak_ptr<Driver> driver;
    bool isInUse = false; ///< from before it is loaded until after it was unloaded
};

/// Those of this process. Qt has each loaded once: whoever came while one is being unloaded would
/// get the factory that is about to be deleted.
struct DriverFiles {
    std::mutex mutex; // guards byPath; not held while a file is loaded or unloaded
    std::condition_variable changed;
    std::map<std::string, DriverFile> byPath;
};

struct Release {
    std::shared_ptr<DriverFiles> files; // a driver may go when the process ends

    void operator()(DriverFile* file) const
    {
        {
            const std::lock_guard lock(files->mutex);
            file->isInUse = false;
        }
        files->changed.notify_all();
    }
};
using FileInUse = std::unique_ptr<DriverFile, Release>;

struct Library {
    Library(FileInUse fileInUse, const std::string& path)
        : file(std::move(fileInUse))
        , plugin(path)
    {
    }

    FileInUse file; // until the plugin is unloaded
    DriverPlugin plugin;
};

/// One file has one path, whichever links lead to it.
std::string canonical(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path result = std::filesystem::canonical(path, error);
    return error ? path : result.string();
}

} // namespace

std::shared_ptr<Driver> Driver::load(const std::string& file)
{
    static const auto files = std::make_shared<DriverFiles>();

    std::unique_lock lock(files->mutex);
    const std::string path = findPlugin(file);
    DriverFile& entry = files->byPath[canonical(path)];
    std::shared_ptr<Driver> driver;
    files->changed.wait(lock, [&] {
        driver = entry.driver.lock();
        return driver || !entry.isInUse;
    });
    if (driver) {
        return driver;
    }
    entry.isInUse = true;
    lock.unlock();

    FileInUse fileInUse(&entry, Release{files});
    const auto library = std::make_shared<Library>(std::move(fileInUse), path);
    driver = std::make_shared<Driver>(
        std::shared_ptr<IFactory>(library, &library->plugin.factory()), busReaders());
    driver->m_file = path;
    lock.lock();
    entry.driver = driver;
    lock.unlock();
    files->changed.notify_all();
    return driver;
}

Driver::Driver(std::shared_ptr<IFactory> factory, BusReaders bus)
    : m_factory(std::move(factory))
    , m_bus(std::move(bus))
    , m_canChoose(m_factory->property(IFactory::deviceSerialsProperty).isValid())
{
    if (m_canChoose) {
        m_factory->moveToThread(nullptr); // from where any thread can take it
    }
}

Driver::~Driver()
{
    if (m_canChoose) {
        m_factory->moveToThread(QThread::currentThread());
    }
}

std::string Driver::name() const
{
    return m_factory->name().toStdString();
}

std::string Driver::version() const
{
    return m_factory->version().toString().toStdString();
}

std::string Driver::guards()
{
    const std::lock_guard lock(m_mutex);
    const auto answer = [this] {
        return m_factory->property(IFactory::guardsProperty).toString().toStdString();
    };
    if (!m_canChoose) {
        return answer();
    }
    const Visit visit(*m_factory);
    if (answer().empty()) {
        m_factory->setProperty(IFactory::devicesProperty, QStringList{QStringLiteral("000/000")});
        m_factory->enumDevice();
    }
    return answer();
}

std::string Driver::open(const BusCamera& camera)
{
    const QString place = QString::fromStdString(camera.place());
    std::string serial;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_canChoose || !isStillFree(camera)) {
            return {};
        }
        const Visit visit(*m_factory);
        m_factory->setProperty(IFactory::devicesProperty, QStringList{place});
        m_factory->enumDevice();
        const QVariantMap serials = m_factory->property(IFactory::deviceSerialsProperty).toMap();
        serial = serials.value(place).toString().toStdString();
        if (!serial.empty() && !camera.serial.empty()) {
            m_checks[camera.place()] = std::chrono::steady_clock::now();
        }
    }
    if (!serial.empty()) {
        m_bus.remember(camera, serial);
    }
    return serial;
}

void Driver::close(const std::string& serial)
{
    if (!m_canChoose) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    const Visit visit(*m_factory);
    const QVariantMap serials = m_factory->property(IFactory::deviceSerialsProperty).toMap();
    const QString place = serials.key(QString::fromStdString(serial));
    if (!place.isEmpty()) {
        m_factory->setProperty(IFactory::devicesProperty, QStringList{'-' + place});
        m_factory->enumDevice();
    }
}

bool Driver::isDoubtful(const BusCamera& camera) const
{
    const std::lock_guard lock(m_mutex);
    const auto check = m_checks.find(camera.place());
    return check == m_checks.end() || std::chrono::steady_clock::now() - check->second > trust;
}

int Driver::openAll()
{
    const std::lock_guard lock(m_mutex);
    return enumerateAll();
}

int Driver::openAllOnce()
{
    const std::lock_guard lock(m_mutex);
    return m_opened < 0 ? enumerateAll() : m_opened;
}

int Driver::enumerateAll()
{
    std::optional<Visit> visit;
    if (m_canChoose) {
        visit.emplace(*m_factory);
        m_factory->setProperty(IFactory::devicesProperty, QStringList());
    }
    m_opened = m_factory->enumDevice();
    return m_opened;
}

/// Other threads and programs may have been quicker than whoever saw the camera free.
bool Driver::isStillFree(const BusCamera& camera) const
{
    const std::vector<BusCamera> cameras = m_bus.camerasAndHolders();
    return std::any_of(cameras.begin(), cameras.end(), [&camera](const BusCamera& now) {
        return now.place() == camera.place() && now.use != Use::Held;
    });
}

} // namespace zrn
