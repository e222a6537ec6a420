#pragma once

#include "zrn_camera.h"

/// A camera whose fields a test can see and set.
class CameraProbe : public CZRNCamera
{
public:
    using CZRNCamera::m_auxParameter;
    using CZRNCamera::m_availableMemory;
    using CZRNCamera::m_bufferLocks;
    using CZRNCamera::m_cacheFrameCount;
    using CZRNCamera::m_cameraEnumLock;
    using CZRNCamera::m_cameraNodeMap;
    using CZRNCamera::m_category;
    using CZRNCamera::m_colorRGBGain;
    using CZRNCamera::m_controlMutex;
    using CZRNCamera::m_currentNode;
    using CZRNCamera::m_enumCount;
    using CZRNCamera::m_exposureReadBack;
    using CZRNCamera::m_exposureTime;
    using CZRNCamera::m_fpsFrameCount;
    using CZRNCamera::m_fpsTimer;
    using CZRNCamera::m_frameBuffers;
    using CZRNCamera::m_frameIndexQueue;
    using CZRNCamera::m_frameMutex;
    using CZRNCamera::m_frameRate;
    using CZRNCamera::m_frameReady;
    using CZRNCamera::m_gain;
    using CZRNCamera::m_gainReadBack;
    using CZRNCamera::m_grabTimeout;
    using CZRNCamera::m_imageHeight;
    using CZRNCamera::m_imageWidth;
    using CZRNCamera::m_isStreaming;
    using CZRNCamera::m_kernelDeviceFolder;
    using CZRNCamera::m_maxExposureTime;
    using CZRNCamera::m_maxGain;
    using CZRNCamera::m_minExposureTime;
    using CZRNCamera::m_minGain;
    using CZRNCamera::m_nodeLock;
    using CZRNCamera::m_pixelFormat;
    using CZRNCamera::m_receivedFrameCount;
    using CZRNCamera::m_sensorType;
    using CZRNCamera::m_serial;
    using CZRNCamera::m_streamCtrl;
    using CZRNCamera::m_triggerMode;
    using CZRNCamera::m_writeIndex;
};
