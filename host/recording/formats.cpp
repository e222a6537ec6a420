#include "recording/formats.h"

namespace zrnrec
{

const std::vector<ExportFormat>& exportFormats()
{
    using Takes = ExportFormat::Takes;
    static const std::vector<ExportFormat> formats = {
        {"png", "", Takes::Anything, makePngFolder, ""},
        {"tiff", ".ome.tif", Takes::Stack, makeTiffStack, "libtiff-dev"},
        {"hdf5", ".h5", Takes::Stack, makeHdf5File, "libhdf5-dev"},
        {"raw", ".raw", Takes::Stack, makeRawStack, ""},
        {"csv", ".csv", Takes::Anything, makeCsvTable, ""},
        {"mkv", ".mkv", Takes::Stack, makeMatroskaFile, "libgstreamer-plugins-base1.0-dev"},
    };
    return formats;
}

} // namespace zrnrec
