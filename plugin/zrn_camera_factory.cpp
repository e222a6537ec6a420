#include "zrn_camera_factory.h"

#include "abandonment.h"
#include "guard_status.h"
#include "operation.h"
#include "timed_camera.h"

#include <QMutex>
#include <QMutexLocker>
#include <QPointer>
#include <QReadLocker>
#include <QReadWriteLock>
#include <QSharedPointer>
#include <QThread>
#include <QWriteLocker>

#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>

namespace
{

/// What a host has chosen, each place once. What is none is left out, and said.
DeviceChoice choiceOf(const QStringList& devices)
{
    DeviceChoice choice;
    for (const QString& device : devices) {
        const bool isClosed = device.startsWith(QLatin1Char('-'));
        const std::optional<BusPlace> place = busPlaceOf(isClosed ? device.mid(1) : device);
        QList<BusPlace>& places = isClosed ? choice.closed : choice.opened;
        if (!place) {
            CZRNCamera::logMalformedPlace(device);
        } else if (!places.contains(*place)) {
            places.append(*place);
        }
    }
    return choice;
}

/// What a process that exits hands out in the place of cameras; never deleted.
std::atomic<CZRNCamera*> absentCamera = nullptr;

CZRNCamera* makeAbsentCamera()
{
    CZRNCamera* none = nullptr;
    if (!absentCamera) {
        auto camera = std::make_unique<TimedCamera>();
        if (absentCamera.compare_exchange_strong(none, camera.get())) {
            static_cast<void>(camera.release());
        }
    }
    return absentCamera;
}

/// Factories that a process leaves behind when it exits.
QList<CZRNCameraFactory*>* factoriesLeftBehind = nullptr;

/// Knows every live factory, and brings those that are left to rest when the process exits.
class FactoryRegistry
{
public:
    FactoryRegistry() { makeWhatLogsAndLocksUse(); }
    ~FactoryRegistry()
    {
        if (Operation::isForkedChild()) {
            keepFactories();
        } else if (m_factories.isEmpty()) {
            Operation::endWriting();
        } else {
            leave();
        }
    }

    void add(CZRNCameraFactory* factory)
    {
        const QMutexLocker locker(&m_mutex);
        m_factories.append(factory);
    }
    void remove(CZRNCameraFactory* factory)
    {
        const QMutexLocker locker(&m_mutex);
        m_factories.removeOne(factory);
    }

private:
    /// QtCore makes the pattern of log lines and the store of contended locks on first use, and
    /// destroys them when the process exits, the younger first. Older than this object, they last
    /// until no camera streams.
    static void makeWhatLogsAndLocksUse()
    {
        qFormatLogMessage(QtDebugMsg, {}, {});
        QReadWriteLock lock;
        const QWriteLocker locker(&lock);
        lock.tryLockForRead(1);
    }

    void leave()
    {
        keepLibraryLoaded();
        makeAbsentCamera();
        Operation::beginLeaving();
        CZRNCamera::wakeAll();
        if (Operation::awaitOthers()) {
            QList<CZRNCamera*> cameras;
            for (CZRNCameraFactory* factory : std::as_const(m_factories)) {
                cameras += factory->cameras();
            }
            std::stable_partition(cameras.begin(), cameras.end(),
                                  [](CZRNCamera* camera) { return camera->isStreaming(); });
            for (CZRNCamera* camera : std::as_const(cameras)) {
                camera->disconnectDevice();
            }
            CZRNCamera::releaseZRNCameraLibrary();
        }
        Operation::endLeaving();
        keepFactories();
    }

    /// Threads of the host go on calling the factories, but Qt deletes a plugin's root object when
    /// the process exits. It does so through a guarded pointer, which takes the object for deleted
    /// from now on.
    void keepFactories()
    {
        keepGuards();
        factoriesLeftBehind = new QList<CZRNCameraFactory*>;
        for (CZRNCameraFactory* factory : std::as_const(m_factories)) {
            if (factory) {
                factoriesLeftBehind->append(factory);
                auto* const guard = QtSharedPointer::ExternalRefCountData::getAndRef(factory);
                guard->strongref.storeRelaxed(0);
            }
        }
    }

    QMutex m_mutex;
    QList<QPointer<CZRNCameraFactory>> m_factories; ///< a forked child may delete one unheard
};

/// Made by the first factory, after the static objects of the camera class, and so destroyed before
/// them.
FactoryRegistry& factoryRegistry()
{
    static FactoryRegistry registry;
    return registry;
}

} // namespace

CZRNCameraFactory::CZRNCameraFactory(QObject* parent)
    : IFactory(parent)
{
    if (Operation::isAdmitted()) {
        factoryRegistry().add(this);
    }
    // Both exist from the start: what is set later changes their values alone.
    setProperty(IFactory::deviceSerialsProperty, QVariantMap());
    setProperty(IFactory::guardsProperty, QString());
    CZRNCamera::initizlizeZRNCameraLibrary();
}

CZRNCameraFactory::~CZRNCameraFactory()
{
    const Operation operation;
    if (!operation) {
        return;
    }
    factoryRegistry().remove(this);
    // One by one, because a camera may be the parent of another.
    while (const std::optional<CZRNCamera*> camera = takeFirst()) {
        if (*camera) {
            (*camera)->stopStream(0);
            delete *camera;
        }
    }
    CZRNCamera::releaseZRNCameraLibrary();
}

QList<CZRNCamera*> CZRNCameraFactory::cameras()
{
    const QReadLocker locker(&m_listLock);
    return m_cameraList;
}

QString CZRNCameraFactory::name()
{
    return QStringLiteral("ZRNCamera");
}

QVersionNumber CZRNCameraFactory::version()
{
    return {2, 2, 1};
}

int CZRNCameraFactory::enumDevice()
{
    const Operation operation;
    if (!operation) {
        return 0;
    }
    const QStringList devices = property(IFactory::devicesProperty).toStringList();
    Findings findings;
    const int count = devices.isEmpty() ? CZRNCamera::enumZRNCameraDevices()
                                        : CZRNCamera::enumChosenDevices(choiceOf(devices),
                                                                        findings.deviceSerials);
    findings.guards = guardStatus().text;
    publish(findings);
    return count;
}

void CZRNCameraFactory::publish(const Findings& findings)
{
    bool isNew = false;
    {
        const QMutexLocker locker(&m_findingsMutex);
        isNew = !(m_findings == findings);
        m_findings = findings;
    }
    // A property belongs to the factory's own thread, which may not have seen to an earlier one.
    if (!isNew && thread() != QThread::currentThread()) {
        return;
    }
    QMetaObject::invokeMethod(this, [this] { setFindings(); });
}

void CZRNCameraFactory::setFindings()
{
    Findings newest;
    {
        const QMutexLocker locker(&m_findingsMutex);
        newest = m_findings;
    }
    setProperty(IFactory::guardsProperty, QString::fromStdString(newest.guards));
    setProperty(IFactory::deviceSerialsProperty, newest.deviceSerials);
}

std::optional<CZRNCamera*> CZRNCameraFactory::takeFirst()
{
    const QWriteLocker locker(&m_listLock);
    m_cameraCount = 0;
    return m_cameraList.isEmpty() ? std::nullopt : std::optional(m_cameraList.takeFirst());
}

bool CZRNCameraFactory::forget(const CZRNCamera* camera)
{
    const QWriteLocker locker(&m_listLock);
    const auto found = std::find(m_cameraList.begin(), m_cameraList.end(), camera);
    if (found == m_cameraList.end()) {
        return false;
    }
    m_cameraList.erase(found);
    --m_cameraCount;
    return true;
}

DeviceInterface* CZRNCameraFactory::createDevice()
{
    const Operation operation;
    if (!operation) {
        return makeAbsentCamera();
    }
    auto* camera = new TimedCamera;
    camera->setDestructionNotice([this, camera] { forget(camera); });
    const QWriteLocker locker(&m_listLock);
    m_cameraList.append(camera);
    ++m_cameraCount;
    return camera;
}

ErrorCode CZRNCameraFactory::deleteDevice(DeviceInterface*& device)
{
    if (!device) {
        return ErrorCode::NoCamera;
    }
    const Operation operation;
    if (!operation) {
        return ErrorCode::NothingEnumerated;
    }
    CZRNCamera* camera = nullptr;
    {
        const QReadLocker locker(&m_listLock);
        const auto found =
            std::find_if(m_cameraList.begin(), m_cameraList.end(), [device](CZRNCamera* entry) {
                return static_cast<DeviceInterface*>(entry) == device;
            });
        camera = found == m_cameraList.end() ? nullptr : *found;
    }
    // Of several threads that delete one camera, one does.
    if (!camera || !forget(camera)) {
        return ErrorCode::NothingEnumerated;
    }
    delete camera;
    device = nullptr;
    return ErrorCode::Success;
}
