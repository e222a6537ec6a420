#include "device_provider.h"
#include "zrn_src.h"

#define PACKAGE "zrncamera"

namespace
{

gboolean registerFeatures(GstPlugin* plugin)
{
    return gst_element_register(plugin, "zrnsrc", GST_RANK_NONE, zrn_src_get_type()) &&
           gst_device_provider_register(plugin, "zrndeviceprovider", GST_RANK_PRIMARY,
                                        zrn_device_provider_get_type());
}

} // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, zrncamera,
                  "USB cameras 0483:5750, two images from each frame", registerFeatures,
                  ZRN_VERSION, "BSD", "zrncamera", "https://zrncamera.invalid")
