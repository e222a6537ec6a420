#include "zrn_camera.h"

#include "atomic_field.h"

#include <QMutexLocker>
#include <QReadLocker>

#include <mutex>

QMutex CZRNCamera::m_cameraEnumLock;
QMap<QString, CameraNode*> CZRNCamera::m_cameraNodeMap;
qint32 CZRNCamera::m_enumCount = 0;
QLoggingCategory CZRNCamera::m_category(driverCategory);
const char* CZRNCamera::m_kernelDeviceFolder = "/sys/dev/char";
std::shared_mutex CZRNCamera::m_nodeTableLock;

CZRNCamera::CZRNCamera()
{
    const Operation operation;
    if (operation) {
        admitCallbacks();
    }
}

CZRNCamera::~CZRNCamera()
{
    const Operation operation;
    if (Operation::isForkedChild()) {
        return; // its locks may be held by threads that only the parent process has
    }
    if (operation && m_destructionNotice) {
        m_destructionNotice();
    }
    if (isConnected()) {
        CZRNCamera::disconnectDevice();
    }
    {
        const QMutexLocker queue(&m_frameMutex);
        m_isClosing = true;
        m_frameReady.wakeAll();
    }
    {
        // Those that this and the stop have woken may still be on their way out.
        const std::lock_guard grabs(m_grabLock);
    }
    refuseCallbacks();
    m_currentNode = nullptr;

    for (unsigned char*& buffer : m_frameBuffers) {
        delete[] buffer;
        buffer = nullptr;
    }
    for (QMutex*& lock : m_bufferLocks) {
        if (lock) {
            // A grab may have left it locked, and destroying a locked mutex is an error.
            static_cast<void>(lock->tryLock(0));
            lock->unlock();
            delete lock;
            lock = nullptr;
        }
    }
    delete m_streamCtrl;
    m_streamCtrl = nullptr;
}

QString CZRNCamera::name()
{
    return QStringLiteral("ZRNCamera");
}

int CZRNCamera::types()
{
    constexpr int cameraDeviceType = 1;
    return cameraDeviceType;
}

bool CZRNCamera::isStreaming()
{
    return shared(m_isStreaming).load();
}

NodeReference CZRNCamera::currentNode()
{
    if (!Operation::isAdmitted()) {
        return {};
    }
    const QReadLocker locker(&m_nodeLock);
    return NodeReference(m_currentNode);
}

CZRNCamera::FrameGeometry CZRNCamera::frameGeometry()
{
    const QMutexLocker queue(&m_frameMutex);
    return lockedGeometry();
}

CZRNCamera::FrameGeometry CZRNCamera::lockedGeometry()
{
    return {shared(m_imageWidth).load(), shared(m_imageHeight).load(),
            ChannelFromImgFormat(shared(m_pixelFormat).load()), shared(m_sensorType).load()};
}

void CZRNCamera::publishGeometry(QSize size, CameraSpace::PixelFormatType format, qint32 sensorType,
                                 bool isNewCamera)
{
    const QMutexLocker queue(&m_frameMutex);
    if (isNewCamera || size != QSize(shared(m_imageWidth).load(), shared(m_imageHeight).load()) ||
        format != shared(m_pixelFormat).load() || sensorType != shared(m_sensorType).load()) {
        clearQueue();
        ++m_geometryEpoch;
        // They are nobody's loss.
        m_lastGrabbed = m_lastFrame;
        m_lastOvertaken = m_overtakenFrames;
        m_untoldLosses = {};
    }
    shared(m_imageWidth).store(size.width());
    shared(m_imageHeight).store(size.height());
    shared(m_pixelFormat).store(format);
    shared(m_sensorType).store(sensorType);
}
