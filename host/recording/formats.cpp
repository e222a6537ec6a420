#include "recording/formats.h"

namespace zrnrec
{

const std::vector<ExportFormat>& exportFormats()
{
    using Takes = ExportFormat::Takes;
    static const std::vector<ExportFormat> formats = {
        {"png", "", Takes::Anything, makePngFolder, ""},
#ifdef ZRN_HAVE_TIFF
        {"tiff", ".ome.tif", Takes::Stack, makeTiffStack, ""},
#else
        {"tiff", ".ome.tif", Takes::Stack, nullptr, "libtiff-dev"},
#endif
#ifdef ZRN_HAVE_HDF5
        {"hdf5", ".h5", Takes::Stack, makeHdf5File, ""},
#else
        {"hdf5", ".h5", Takes::Stack, nullptr, "libhdf5-dev"},
#endif
        {"raw", ".raw", Takes::Stack, makeRawStack, ""},
        {"csv", ".csv", Takes::Anything, makeCsvTable, ""},
#ifdef ZRN_HAVE_GSTREAMER_APP
        {"mkv", ".mkv", Takes::Stack, makeMatroskaFile, ""},
#else
        {"mkv", ".mkv", Takes::Stack, nullptr, "libgstreamer-plugins-base1.0-dev"},
#endif
    };
    return formats;
}

} // namespace zrnrec
