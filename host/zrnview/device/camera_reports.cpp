#include "zrnview/device/camera_reports.h"

namespace zrnview
{

void registerReportTypes()
{
    qRegisterMetaType<CameraFacts>();
    qRegisterMetaType<SettingReadings>();
    qRegisterMetaType<PropertyReadings>();
    qRegisterMetaType<CameraHealth>();
    qRegisterMetaType<ErrorCode>();
}

} // namespace zrnview
