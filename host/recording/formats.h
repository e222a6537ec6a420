#pragma once

#include "recording/export_target.h"

/// A function for each format. Those that need a library are null in builds without it.
namespace zrnrec
{

/// A PNG file for each image, by as many threads as there are processors.
std::unique_ptr<ExportTarget> makePngFolder(const ExportJob& job);
/// A file for each image, as the driver delivered it.
std::unique_ptr<ExportTarget> makeImageFolder(const ExportJob& job);
/// The pixels of all images, one behind the other, and a JSON file that describes them.
std::unique_ptr<ExportTarget> makeRawStack(const ExportJob& job);
/// A line for each frame.
std::unique_ptr<ExportTarget> makeCsvTable(const ExportJob& job);
/// A BigTIFF with OME-XML.
[[gnu::weak]] std::unique_ptr<ExportTarget> makeTiffStack(const ExportJob& job);
/// Datasets of images and of what is known about them.
[[gnu::weak]] std::unique_ptr<ExportTarget> makeHdf5File(const ExportJob& job);
/// A Matroska file with a track for each image.
[[gnu::weak]] std::unique_ptr<ExportTarget> makeMatroskaFile(const ExportJob& job);

} // namespace zrnrec
