#pragma once

#include "camera_types.h"
#include "error_code.h"

#include <QList>
#include <QObject>

namespace CameraSpace
{

/// Where the times of a frame's payloads come from.
enum class FrameTimeSource : quint32 {
    None = 0,     ///< there was no frame
    Callback = 1, ///< nobody saw the payloads: the hand-over stands in for them
    Payload = 2,  ///< taken when the payload arrived in the process
};

/// When a frame was there. Times are nanoseconds of CLOCK_MONOTONIC.
struct FrameTimes {
    qint64 firstPayload = 0; ///< arrival of its first payload with picture bytes
    qint64 lastPayload = 0;  ///< arrival of its last one
    qint64 handOver = 0;     ///< when the driver got the whole frame
    FrameTimeSource payloadSource = FrameTimeSource::None; ///< of the first two

    /// Number that the USB library gave to the frame; 1 is the first of a stream.
    quint32 sequence = 0;

    /// The camera's own clock, from the header of the first payload that tells it.
    quint32 hasPresentationTime = 0; ///< 0 or 1
    quint32 presentationTime = 0;    ///< when the camera began to take the frame
    quint32 hasSourceClock = 0;      ///< 0 or 1
    quint32 sourceClock = 0;         ///< when the camera sent that payload
    quint32 busFrame = 0;            ///< USB frame number at that moment, 11 bits
    quint32 clockFrequency = 0;      ///< of that clock in Hz, as the camera tells; 0: it does not

    /// Frames that the driver had and that no grab took, since the last grab: overwritten in its
    /// ring, dropped for a newer one or discarded.
    quint64 ringLosses = 0;
    /// Frames that arrived whole and that the USB library dropped for a newer one before it handed
    /// them over, since the last grab. Where the payloads are not seen, damaged ones count as well.
    quint64 libraryLosses = 0;
};

/// What a camera may answer beside CameraInterface: when its frames were there. Reached through the
/// camera's QObject, by qobject_cast or by qt_metacast with the identifier below; a driver that
/// lacks it answers null. The number at the identifier's end grows when anything here changes.
///
/// Ownership: a part of the camera object, which lives as long as that.
///
/// Thread safety: any thread may call any operation.
class FrameTimesInterface
{
public:
    /// As CameraInterface::grabImage(), and tells the times of the frame. @p times is overwritten
    /// where a frame was taken, which includes SplitFailed and SplitException, and else keeps its
    /// values. A grab by either operation is the last grab for the next one's losses.
    virtual ErrorCode grabTimedImage(QList<ImageBlock*>& images, FrameTimes& times) = 0;

protected:
    ~FrameTimesInterface() = default;
};

} // namespace CameraSpace

Q_DECLARE_INTERFACE(CameraSpace::FrameTimesInterface, "zrncamera.FrameTimesInterface/1")
