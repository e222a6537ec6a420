#pragma once

#include "camera_interface.h"
#include "camera_node.h"
#include "device_access.h"
#include "frame_trailer.h"
#include "heap_retention.h"

#include <QList>
#include <QLoggingCategory>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QQueue>
#include <QReadWriteLock>
#include <QString>
#include <QTime>
#include <QVariant>
#include <QWaitCondition>
#include <libuvc/libuvc.h>

#include <cstddef>
#include <vector>

// The meta-object knows the interfaces by their plain names.
using BaseDeviceSpace::DeviceInterface;
using CameraSpace::CameraInterface;

/// One camera as the host drives it: unconnected at first, then attached to a node of the node
/// table.
///
/// Ownership: the factory owns cameras; a camera owns its frame ring; the node table owns the
/// nodes.
///
/// The ring: the frame callback on libuvc's streaming thread is its only writer, `m_writeIndex` the
/// next slot to write, and `m_frameIndexQueue` names the filled slots, oldest first. A slot is
/// written and read under its own mutex of `m_bufferLocks`; the queue and the lists of the ring are
/// changed under `m_frameMutex`, which is never held while a slot mutex is taken.
///
/// Locks, outermost first: `m_grabLock`, `m_lifecycleMutex`, `m_nodeLock`, the static
/// `m_nodeTableLock`, a node's `accessLock`, `m_controlMutex`. Slot mutexes and `m_frameMutex`
/// stand apart, except that a slot mutex is held while `m_nodeLock` is read. Plain fields that two
/// threads touch without a lock are reached through atomic references.
class CZRNCamera : public QObject, public CameraInterface
{
    Q_OBJECT

public:
    CZRNCamera();
    ~CZRNCamera() override;

    QString name() override;
    int types() override;

    // Connection: connection.cpp. One thread at a time.
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
    /// Opens the index-th device on the bus with these ids and fills @p node.
    static bool openSpecifedDevice(int vendorId, int productId, int index, CameraNode& node);
    /// Closes handle, device and context of a node.
    static void closeSpecifedDevice(CameraNode* node);
    /// Closes and deletes every node.
    static bool releaseZRNCameraLibrary();
    /// The same when the process exits: threads that go on enumerating find nothing, and leave the
    /// node table alone, which is about to be destroyed. Nothing is logged any more.
    static void releaseAtExit();
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

    static QMutex m_cameraEnumLock;
    static QMap<QString, CameraNode*> m_cameraNodeMap; ///< by serial key
    static qint32 m_enumCount; ///< devices that the last successful enumeration opened
    static QLoggingCategory m_category;

private:
    /// Size and packing of the frames that the camera sends, read at one moment.
    struct FrameGeometry {
        int width;
        int height;
        int bytesPerPosition;

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
    };

    /// A slot of the ring, as taken under m_frameMutex.
    struct FrameSlot {
        unsigned char* buffer = nullptr;
        QMutex* lock = nullptr;
        std::size_t size = 0; ///< bytes of the buffer, trailer included
    };

    [[nodiscard]] FrameGeometry frameGeometry();
    [[nodiscard]] NodeReference currentNode();
    [[nodiscard]] DeviceAccess accessDevice() { return DeviceAccess(currentNode()); }
    [[nodiscard]] bool isConnected() { return static_cast<bool>(currentNode()); }

    /// Empties the node table. @return the nodes that it held.
    static QList<CameraNode*> takeNodes();
    /// Closes nodes that were in the table and gives back its references to them.
    static void releaseNodes(const QList<CameraNode*>& nodes);
    /// Enters an opened camera into the node table.
    static void registerNode(const CameraNode& opened);

    ErrorCode connectNode(NodeReference node);
    bool readGeometry(const DeviceAccess& device);
    static void logFormat(const uvc_format_desc_t& format);
    static void logFrame(const uvc_frame_desc_t& frame);

    void cacheFrame(const uvc_frame& frame);
    bool growRing(const FrameGeometry& geometry, int count);
    void warnOfSmallSlots(const FrameGeometry& geometry, int count);
    void reportSmallSlot(std::size_t frameSize, std::size_t slotSize);
    /// No buffer when the ring has no such slot. To be called under m_frameMutex while streaming.
    [[nodiscard]] FrameSlot frameSlot(int index) const;
    void measureFrameRate();
    [[nodiscard]] unsigned long grabTimeout();

    bool splitFrame(QList<CameraSpace::ImageBlock*>& images, const unsigned char* frame,
                    const FrameGeometry& geometry, qint32 sensorType);

    bool colorByteIO(int byte, bool read, int& value);

    /// The property tables (properties.cpp).
    struct Properties;

    /// Sizes of m_frameBuffers: an object that is connected to another camera keeps its old slots.
    std::vector<std::size_t> m_slotSizes;
    bool m_smallSlotReported = false; ///< one line for each start
    QRecursiveMutex m_lifecycleMutex; ///< serialises connecting, starting, stopping, disconnecting
    /// Images that a host may delete in one go without a page fault in the grabs that follow: those
    /// of eight grabs that it keeps, of one in hand, and some slack.
    static constexpr std::size_t liveImages = std::size_t{2} * 10;
    HeapRoom m_imageRoom;      ///< for liveImages, where the first thread to grab allocates
    QReadWriteLock m_grabLock; ///< held for reading by grabs and discards; destruction waits for it
    quint32 m_arrivedFrameCount = 0; ///< frames ever queued, modulo 2^32; under m_frameMutex
    bool m_isClosing = false;        ///< nobody may begin to wait; under m_frameMutex

    static QReadWriteLock m_nodeTableLock; ///< guards m_cameraNodeMap and m_enumCount
    static bool m_isExiting;               ///< under m_cameraEnumLock
};
