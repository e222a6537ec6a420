#pragma once

#include "available_memory.h"
#include "bus_place.h"
#include "camera_interface.h"
#include "camera_node.h"
#include "device_access.h"
#include "frame_times_interface.h"
#include "frame_trailer.h"
#include "operation.h"
#include "stream_times.h"

#include <QDeadlineTimer>
#include <QList>
#include <QLoggingCategory>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QQueue>
#include <QReadWriteLock>
#include <QSize>
#include <QString>
#include <QTime>
#include <QVariant>
#include <QWaitCondition>
#include <libuvc/libuvc.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <utility>
#include <vector>

// The meta-object knows the interfaces by their plain names.
using BaseDeviceSpace::DeviceInterface;
using CameraSpace::CameraInterface;

/// One camera as the host drives it: unconnected at first, then attached to a node of the node
/// table.
///
/// What hosts rely on and what is therefore never mended: the order of the virtual operations; the
/// protected fields and statics, with their names, types, defaults and order of declaration (what
/// the driver itself needs comes after them); the spellings `initizlizeZRNCameraLibrary`,
/// `openSpecifedDevice`, `closeSpecifedDevice`, `spliteImage`, `heartBeartQuery`, and those of the
/// texts "FEAMERATE", " getPproerty:", "CameraNode not openned" and " ... faild ret:"; what answers
/// the other way round (`readResolutionList`) or fails whatever it does (writing
/// `resolutionIndexIO`, `setTriggerMode`, `getTriggerMode`).
///
/// Ownership: the factory owns cameras; a camera owns its frame ring; the node table owns the
/// nodes.
///
/// The ring: frame callbacks on libuvc's streaming threads write it, `m_writeIndex` is the next
/// slot to write, and `m_frameIndexQueue` names the filled slots, oldest first and each at most
/// once. A slot is written and read under its own mutex of `m_bufferLocks`, and knows there which
/// frame it holds. The queue, the lists of the ring, and size, pixel format and sensor type as a
/// group change under `m_frameMutex`.
///
/// The states of a camera, every lock and the one order of all of them: docs/architecture.md. Plain
/// fields that two threads touch without a lock are reached through atomic references.
class CZRNCamera : public QObject, public CameraInterface
{
    Q_OBJECT

public:
    CZRNCamera();
    ~CZRNCamera() override;

    /// Has @p tell called at the beginning of the destruction, for an owner of the object that
    /// others, such as a parent, may delete. To be set before the object is shared.
    void setDestructionNotice(std::function<void()> tell) { m_destructionNotice = std::move(tell); }

    QString name() override;
    int types() override;

    // Connection: connection.cpp. Any thread; those of one camera wait for each other.
    ErrorCode connectDeviceBySerial(const QString& serial) override;
    ErrorCode connectDeviceByIndex(int index) override;
    ErrorCode reconnectDevice() override;
    ErrorCode disconnectDevice() override;

    // Properties and commands: properties.cpp, vendor_controls.cpp. Any thread.
    ErrorCode getProperty(const QString& key, QMap<QString, QVariant>& values) override;
    ErrorCode setProperty(const QString& key, const QMap<QString, QVariant>& values) override;
    ErrorCode executeCommand(const QString& command, QMap<QString, QVariant>& values) override;

    // Typed controls: typed_controls.cpp. Any thread.
    ErrorCode getExposureTimeRange(unsigned int& minimum, unsigned int& maximum,
                                   signed char selector) override;
    ErrorCode setExposureTime(unsigned int value, signed char selector) override;
    ErrorCode getExposureTime(unsigned int& value, signed char selector) override;
    ErrorCode getGainRange(unsigned short& minimum, unsigned short& maximum,
                           signed char selector) override;
    ErrorCode setGain(unsigned short value, signed char selector) override;
    ErrorCode getGain(unsigned short& value, signed char selector) override;
    ErrorCode getMaxImageSize(unsigned int& width, unsigned int& height,
                              signed char selector) override;
    ErrorCode setInterestSize(unsigned int width, unsigned int height,
                              signed char selector) override;
    ErrorCode getInterestSize(unsigned int& width, unsigned int& height,
                              signed char selector) override;
    ErrorCode setAOIOffset(unsigned int x, unsigned int y, signed char selector) override;
    ErrorCode getAOIOffset(unsigned int& x, unsigned int& y, signed char selector) override;
    ErrorCode getPixelFormat(CameraSpace::PixelFormatType& format, signed char selector) override;
    ErrorCode setTriggerMode(CameraSpace::TriggerMode mode, signed char selector) override;
    ErrorCode getTriggerMode(CameraSpace::TriggerMode& mode, signed char selector) override;

    // Acquisition: streaming.cpp, grabbing.cpp. Any thread.
    ErrorCode discardFrames(signed char selector) override;
    ErrorCode startStream(signed char selector) override;
    ErrorCode stopStream(signed char selector) override;
    ErrorCode grabImage(QList<CameraSpace::ImageBlock*>& images) override;

    /// The same with the times of the frame. @see CameraSpace::FrameTimesInterface
    ErrorCode grabTimed(QList<CameraSpace::ImageBlock*>& images, CameraSpace::FrameTimes& times);

    /// Whether frames are accepted.
    bool isStreaming();

    /// Stream callback of libuvc (frame_cache.cpp). @param ptr the camera.
    static void frameTriggered(uvc_frame* frame, void* ptr);

    /// Unpacks one cached frame and appends its images. @param frame a slot of the ring.
    bool spliteImage(QList<CameraSpace::ImageBlock*>& images, const unsigned char* frame);
    /// Realigns shifted rows in place; the last argument is not used. @see realignRows
    static int formatImage(unsigned char*& data, int width, int height, int unused);
    /// Bytes for each pixel position of a packed frame.
    static int ChannelFromImgFormat(CameraSpace::PixelFormatType format);

    // Enumeration: enumeration.cpp. Any thread.
    static bool initizlizeZRNCameraLibrary();
    /// Closes every known camera, then finds, opens and registers those on the bus.
    /// @return how many were opened.
    static int enumZRNCameraDevices();
    /// Closes and opens the chosen cameras alone, and forgets those that are closed or have left
    /// the bus; all others stay as they are, streams included. @param serials set to the serials of
    /// the cameras that are open then, as hosts see them, by place. @return how many nodes the
    /// table holds then.
    static int enumChosenDevices(const DeviceChoice& choice, QVariantMap& serials);
    /// Says that what a host has chosen is no place on a bus.
    static void logMalformedPlace(const QString& text);
    /// Opens the index-th device on the bus with these ids and fills @p node.
    static bool openSpecifedDevice(int vendorId, int productId, int index, CameraNode& node);
    /// Closes handle, device and context of a node.
    static void closeSpecifedDevice(CameraNode* node);
    /// Closes and deletes every node.
    static bool releaseZRNCameraLibrary();
    /// Ends the waits of every camera object, for a process that exits.
    static void wakeAll();
    /// The decimal serial key that an open camera carries. UVC: Backlight Compensation, of which
    /// GET_CUR, GET_MIN, GET_MAX and GET_DEF give 16 bits each, lowest first.
    static QString readSerial(uvc_device_handle_t* handle);

    // Parts of a connection: connection.cpp.
    bool initializeCamera();
    /// Whether the camera answers.
    bool heartBeartQuery();
    /// The serial as hosts see it: "ZR" and the serial key.
    bool readSerial(QString& serial);

    // IO functions: true reads into the reference, false writes the reference. They answer whether
    // that succeeded. Those that reach the camera's controls never log.
    bool cacheFrameCountIO(bool read, int& count);
    /// Fills in the uncompressed frame sizes only when there are none, and succeeds only then.
    bool readResolutionList(QMap<QString, QVariant>& map);
    /// Reads the position of the current frame size in its format. Writing selects nothing and
    /// fails.
    bool resolutionIndexIO(bool read, int& index);
    bool hueIO(bool read, int& value);   ///< UVC: Hue, -32768 to 32767
    bool sharpIO(bool read, int& value); ///< UVC: Sharpness, 0 to 65535
    bool gammaIO(bool read, int& value); ///< UVC: Gamma, 0 to 65535
    /// Four colour gains, one for each byte, carried by Gamma, Sharpness, Hue and Saturation.
    bool colorRGBGainIO(bool read, long& packed);
    bool colorRGainIO(bool read, int& value);  ///< byte 0, UVC: Gamma
    bool colorGRGainIO(bool read, int& value); ///< byte 1, UVC: Sharpness
    bool colorGBGainIO(bool read, int& value); ///< byte 2, UVC: Hue
    bool colorBGainIO(bool read, int& value);  ///< byte 3, UVC: Saturation
    /// Resets the camera by writing the current value of its Contrast control back.
    bool resetCameraState();

protected:
    CameraNode* m_currentNode = nullptr; ///< null: not connected
    qint32 m_sensorType = -1;
    qint32 m_cacheFrameCount = 16; ///< slots of the ring in use
    QReadWriteLock m_nodeLock;     ///< guards m_currentNode
    QString m_serial;              ///< serial key of the last connected camera
    qint32 m_imageWidth = 1280;
    qint32 m_imageHeight = 1024;
    quint32 m_maxExposureTime = 0; ///< below the minimum: no exposure is accepted before connecting
    quint32 m_minExposureTime = 1000;
    qint32 m_exposureTime = 10; ///< last written, in the device's count
    quint16 m_maxGain = 255;
    quint16 m_minGain = 1;
    qint32 m_gain = 10;      ///< last written
    long m_colorRGBGain = 0; ///< packed, as read when connecting
    QMutex m_controlMutex;   ///< serialises gain transfers
    CameraSpace::PixelFormatType m_pixelFormat = CameraSpace::PixelFormatType::Mono8;
    QQueue<int> m_frameIndexQueue; ///< filled slots, oldest first
    qint32 m_writeIndex = 0;       ///< slot that the next frame fills
    bool m_isStreaming = false;
    qint32 m_grabTimeout = 1000; ///< milliseconds, taken as unsigned
    QList<unsigned char*> m_frameBuffers;
    QList<QMutex*> m_bufferLocks;
    bool m_exposureReadBack = true; ///< read the exposure back after writing it
    qint32 m_auxParameter = 10;     ///< kept for the host
    bool m_gainReadBack = true;     ///< read the gain back after writing it
    QWaitCondition m_frameReady;
    QMutex m_frameMutex;
    QTime m_fpsTimer; ///< start of the measured interval, by the frame clock
    qint32 m_fpsFrameCount = 0;
    double m_frameRate = 0.0; ///< frames per second
    CameraSpace::TriggerMode m_triggerMode = CameraSpace::TriggerMode::Oldest;
    qint32 m_receivedFrameCount = 0; ///< counts to 16 after a start or discard
    uvc_stream_ctrl_t* m_streamCtrl = nullptr;

    /// What the ring may grow into. A field, so that a test can set it.
    MemoryLimit m_availableMemory = &availableMemory;

    static QMutex m_cameraEnumLock;
    static QMap<QString, CameraNode*> m_cameraNodeMap; ///< by serial key
    static qint32 m_enumCount; ///< devices that the last successful enumeration opened
    static QLoggingCategory m_category;
    static const char* m_kernelDeviceFolder; ///< has an entry for each character device

private:
    /// Size, packing and sensor type of the frames that the camera sends. They belong together:
    /// those of one camera and one connection.
    struct FrameGeometry {
        int width = 0;
        int height = 0;
        int bytesPerPosition = 0;
        qint32 sensorType = -1;

        [[nodiscard]] std::size_t pixels() const
        {
            return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
        }
        [[nodiscard]] std::size_t frameSize() const
        {
            return pixels() * static_cast<std::size_t>(bytesPerPosition);
        }
        /// Bytes of an image's data.
        [[nodiscard]] std::size_t imageSize() const { return pixels() + frameTrailerSize; }
        [[nodiscard]] bool hasSizeOf(const FrameGeometry& other) const
        {
            return width == other.width && height == other.height &&
                   bytesPerPosition == other.bytesPerPosition;
        }
    };

    /// What a slot of the ring holds. Frames are numbered from 1 in the order of their arrival.
    struct SlotRecord {
        explicit SlotRecord(std::size_t bytes)
            : size(bytes)
        {
        }

        const std::size_t size;  ///< bytes of the buffer, trailer included
        quint64 queuedFrame = 0; ///< which its entry in the queue stands for; under m_frameMutex
        quint64 queuedOvertaken = 0; ///< m_overtakenFrames of then; under m_frameMutex
        quint64 heldFrame = 0;       ///< whose bytes are in it, 0 for none; under the slot's mutex
        FrameGeometry geometry;      ///< of that frame; under the slot's mutex
        CameraSpace::FrameTimes times; ///< of that frame, without losses; likewise
        UnwrittenMemory unwritten;     ///< of the buffer; likewise
    };

    /// A slot of the ring, as taken under m_frameMutex.
    struct FrameSlot {
        unsigned char* buffer = nullptr;
        QMutex* lock = nullptr;
        SlotRecord* record = nullptr;
    };

    /// Frames that were lost since the last grab.
    struct FrameLosses {
        quint64 ring = 0;
        quint64 library = 0;
    };

    /// A frame that is to be grabbed or stored.
    struct FrameTicket {
        FrameSlot slot;
        quint64 frame = 0;
        FrameGeometry geometry; ///< the camera's when the ticket was drawn
        FrameLosses losses;     ///< before a frame that is to be grabbed
    };

    [[nodiscard]] FrameGeometry frameGeometry();
    /// The same, to be called under m_frameMutex.
    [[nodiscard]] FrameGeometry lockedGeometry();
    [[nodiscard]] NodeReference currentNode();
    [[nodiscard]] DeviceAccess accessDevice() { return DeviceAccess(currentNode()); }
    [[nodiscard]] bool isConnected() { return static_cast<bool>(currentNode()); }

    /// Empties the node table. @return the nodes that it held.
    static QList<CameraNode*> takeNodes();
    /// Closes nodes that were in the table and gives back its references to them.
    static void releaseNodes(const QList<CameraNode*>& nodes);
    /// Closes handle, device and context of a node that a NodeClosing holds.
    /// @return false when libuvc could not be asked to, and what it holds stays allocated.
    static bool closeNode(CameraNode& node);
    static void logAbandoned(const CameraNode& node);
    /// Logs once, at an enumeration, why a host is not safe from libuvc's faults.
    static void reportMissingGuards();
    /// Enters an opened camera into the node table.
    static void registerNode(const CameraNode& opened);
    /// The devices on the bus, in a new context. @return false, with the reason logged, when they
    /// cannot be listed; the context then is null or the caller's to release.
    static bool listDevices(uvc_context_t*& context, uvc_device_t**& devices);
    /// Opens a device of a context's list and fills the node. The context is the node's then.
    static bool openListedDevice(uvc_device_t* device, int position, uvc_context_t* context,
                                 CameraNode& node);

    // For enumChosenDevices().
    static std::optional<QList<BusPlace>> placesOnBus();
    /// Whether the kernel has a device there. Takes no file descriptor, of which there may be none.
    static bool isKnownToKernel(const BusPlace& place);
    static void openChosenDevice(const BusPlace& place);
    static bool openDeviceAt(const BusPlace& place, CameraNode& node);
    /// Takes the nodes out of the table that are closed or whose place is not to be kept.
    static QList<CameraNode*> takeNodesUnless(const std::function<bool(const BusPlace&)>& keeps);
    /// As registerNode(), but leaves an open camera with the same serial alone. @return false then
    static bool registerAlone(const CameraNode& opened);

    /// A serial as hosts see it.
    static QString hostSerial(const QString& serialKey);

    ErrorCode connectNode(NodeReference node);
    bool initializeCamera(QSize firstFrame, bool isNewCamera);
    /// Makes size, format and sensor type those of the camera, in one step for whoever reads them.
    /// Unread frames of another camera, size or type leave the queue in the same step.
    void publishGeometry(QSize size, CameraSpace::PixelFormatType format, qint32 sensorType,
                         bool isNewCamera);
    /// The size of a camera's first frame; nothing when it describes none.
    static std::optional<QSize> readFrameSize(const DeviceAccess& device);
    static LogStream logDebug() { return {QtDebugMsg, m_category}; }
    static LogStream logInfo() { return {QtInfoMsg, m_category}; }
    static LogStream logCritical() { return {QtCriticalMsg, m_category}; }
    static void logFormat(const uvc_format_desc_t& format);
    static void logFrame(const uvc_frame_desc_t& frame);

    struct LivingCameras;
    class CallbackScope;
    /// Lets libuvc's streams deliver to this object.
    void admitCallbacks();
    /// Ends that, and waits for callbacks that have begun.
    void refuseCallbacks();
    void cacheFrame(const uvc_frame& frame);
    /// The times of a frame that libuvc hands over, without losses; those in libuvc are counted. To
    /// be called for each frame of a stream, under m_frameMutex.
    CameraSpace::FrameTimes noteHandOver(const uvc_frame& frame, qint64 now);
    void logRefusal(const uvc_frame& frame, const FrameTicket& ticket);
    /// Takes all entries of a slot out of the queue. To be called under m_frameMutex.
    void withdraw(int index) { m_frameIndexQueue.removeAll(index); }
    /// Empties the queue, and keeps the memory that the frame callback relies on. To be called
    /// under m_frameMutex.
    void clearQueue()
    {
        m_frameIndexQueue.erase(m_frameIndexQueue.begin(), m_frameIndexQueue.end());
    }
    /// Takes a frame and unpacks it. @param times set where there is a frame; null: not wanted
    ErrorCode grabFrame(QList<CameraSpace::ImageBlock*>& images, CameraSpace::FrameTimes* times);
    /// Waits for a frame and takes it out of the queue; adds what was lost before it to the
    /// ticket's losses. @return whether there is one.
    bool takeFrame(FrameTicket& ticket, const QDeadlineTimer& deadline);
    /// Has the payloads of the next stream watched, where memory allows.
    void expectStream(const DeviceAccess& device, std::size_t frameSize);
    /// Whether another object or an enumeration has closed the camera under a stream.
    bool streamWasClosed();
    /// There is no stream any more: whoever waits for its frames wakes.
    void markStopped();
    bool growRing(const FrameGeometry& geometry, int count);
    void warnOfSmallSlots(const FrameGeometry& geometry, int count);
    void reportSmallSlot(std::size_t frameSize, std::size_t slotSize);
    /// No buffer when the ring has no such slot. To be called under m_frameMutex while streaming.
    [[nodiscard]] FrameSlot frameSlot(int index) const;
    void measureFrameRate();
    [[nodiscard]] unsigned long grabTimeout();

    bool splitFrame(QList<CameraSpace::ImageBlock*>& images, const unsigned char* frame,
                    const FrameGeometry& geometry);

    bool colorByteIO(int byte, bool read, int& value);

    /// The property tables (properties.cpp).
    struct Properties;

    /// Of m_frameBuffers: an object that is connected to another camera keeps its old slots. They
    /// stay where they are while the ring grows.
    std::vector<std::unique_ptr<SlotRecord>> m_slotRecords;
    bool m_smallSlotReported = false; ///< one line for each start
    quint64 m_lastFrame = 0;          ///< number of the last frame stored; under m_frameMutex
    quint64 m_geometryEpoch = 0;      ///< counts emptied queues of publishGeometry; likewise
    uvc_device_handle_t* m_streamHandle = nullptr; ///< that streams; under m_lifecycleMutex
    QRecursiveMutex m_lifecycleMutex; ///< serialises connecting, starting, stopping, disconnecting
    std::shared_mutex
        m_grabLock; ///< held for reading by grabs and discards; destruction waits for it
    quint32 m_arrivedFrameCount = 0; ///< frames ever queued, modulo 2^32; under m_frameMutex
    bool m_isClosing = false;        ///< nobody may begin to wait; under m_frameMutex
    int m_resizingThreads = 0;       ///< while there are any, discards do not wait; likewise
    quint32 m_interruptions = 0;     ///< of waits, modulo 2^32; likewise
    int m_runningCallbacks = 0;      ///< under the lock of the living cameras

    // The times of frames and the places of losses; all under m_frameMutex.
    std::shared_ptr<StreamTimes> m_streamTimes; ///< of the stream started last
    quint32 m_clockFrequency = 0;               ///< of the camera's clock in Hz
    quint32 m_lastSequence = 0;                 ///< of libuvc, in this stream
    /// Whole frames of this stream up to the last hand-over, those that libuvc dropped included.
    std::optional<quint64> m_wholeFrames;
    quint64 m_overtakenFrames = 0; ///< frames that libuvc dropped, in all streams
    quint64 m_lastGrabbed = 0;     ///< number of the frame that a grab took last
    quint64 m_lastOvertaken = 0;   ///< m_overtakenFrames when that was stored
    FrameLosses m_untoldLosses;    ///< noticed by a grab that found no frame
    std::function<void()> m_destructionNotice;

    static std::shared_mutex m_nodeTableLock; ///< guards m_cameraNodeMap and m_enumCount
};
