#pragma once

#include "frame_times_interface.h"
#include "zrn_camera.h"

#include <cstring>

/// The camera that hosts get: CZRNCamera, and beside it the optional interface for the times of
/// frames, which it answers without a change to that class's bases, tables and meta-object.
class TimedCamera final : public CZRNCamera, public CameraSpace::FrameTimesInterface
{
public:
    ErrorCode grabTimedImage(QList<CameraSpace::ImageBlock*>& images,
                             CameraSpace::FrameTimes& times) override
    {
        return grabTimed(images, times);
    }

    void* qt_metacast(const char* name) override
    {
        using Interface = CameraSpace::FrameTimesInterface;
        if (name && std::strcmp(name, qobject_interface_iid<Interface*>()) == 0) {
            return static_cast<Interface*>(this);
        }
        return CZRNCamera::qt_metacast(name);
    }
};
