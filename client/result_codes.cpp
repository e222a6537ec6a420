#include "client/result_codes.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace zrn
{
namespace
{

constexpr const char* controlRefused =
    "the camera refused or lost the control request; try again, then reconnect the camera";
constexpr const char* checkFailed =
    "set a value that the camera can keep; if it refuses every one, reconnect the camera";

constexpr std::array table = {
    ResultCodeInfo{ErrorCode::Success, "Success", "success", ""},
    ResultCodeInfo{ErrorCode::NoCamera, "NoCamera", "no camera is connected",
                   "connect a camera before using it"},
    ResultCodeInfo{ErrorCode::SplitException, "SplitException",
                   "an exception came out of unpacking a frame",
                   "the host is probably out of memory; release grabbed images"},
    ResultCodeInfo{ErrorCode::SerialNotFound, "SerialNotFound",
                   "no enumerated camera has this serial",
                   "compare it with the serials of the cameras on the bus"},
    ResultCodeInfo{ErrorCode::IndexNotFound, "IndexNotFound", "no enumerated camera at this index",
                   "indices begin at 0; list the cameras on the bus"},
    ResultCodeInfo{ErrorCode::NodeNotOpen, "NodeNotOpen",
                   "the camera was enumerated, but is not open any more",
                   "enumerate again, then connect"},
    ResultCodeInfo{ErrorCode::AlreadyConnected, "AlreadyConnected",
                   "this camera object is connected already",
                   "disconnect it first, or use another camera object"},
    ResultCodeInfo{ErrorCode::NotSupported, "NotSupported",
                   "not supported, or the key is unknown or read-only",
                   "compare the key with the list of the properties and their access"},
    ResultCodeInfo{ErrorCode::NothingEnumerated, "NothingEnumerated", "no camera was enumerated",
                   "check cable and supply, and the right to open the camera"},
    ResultCodeInfo{ErrorCode::NotConnected, "NotConnected", "the camera object is not connected",
                   "connect it first"},
    ResultCodeInfo{ErrorCode::PropertyFailed, "PropertyFailed",
                   "known key, but the access failed or the value has a wrong type",
                   "check the type and range of the value, and whether the stream must be stopped"},
    ResultCodeInfo{ErrorCode::BadArgument, "BadArgument",
                   "an argument is empty, missing or out of range",
                   "stay within the range that the camera reports"},
    ResultCodeInfo{ErrorCode::CommandFailed, "CommandFailed",
                   "the camera did not carry out the command",
                   "sensor types 0 and 1 have no reset; for others try again"},
    ResultCodeInfo{ErrorCode::NotStreaming, "NotStreaming", "the stream is not running",
                   "start the stream first"},
    ResultCodeInfo{ErrorCode::GrabTimeout, "GrabTimeout", "no frame arrived within the wait",
                   "restart the stream; raise the wait (MaxGrabWaitTime) above the exposure time; "
                   "check the cable"},
    ResultCodeInfo{ErrorCode::SplitFailed, "SplitFailed", "a frame could not be unpacked",
                   "release images, as memory may be short; if it stays, connect through a new "
                   "camera object: a cache keeps the frame size that it was made for"},
    ResultCodeInfo{ErrorCode::ExposureWriteFailed, "ExposureWriteFailed",
                   "the exposure time could not be written", controlRefused},
    ResultCodeInfo{ErrorCode::ExposureReadFailed, "ExposureReadFailed",
                   "the exposure time could not be read, or reads back differently", checkFailed},
    ResultCodeInfo{ErrorCode::ExposureRangeFailed, "ExposureRangeFailed",
                   "the exposure range could not be read", controlRefused},
    ResultCodeInfo{ErrorCode::GainWriteFailed, "GainWriteFailed",
                   "the gain could not be written, or reads back differently", checkFailed},
    ResultCodeInfo{ErrorCode::GainReadFailed, "GainReadFailed", "the gain could not be read",
                   controlRefused},
    ResultCodeInfo{
        ErrorCode::NoFrameDescriptor, "NoFrameDescriptor",
        "the camera reports no format or no frame size",
        "enumerate and connect again; if it stays, 'lsusb -v' shows what the camera reports"},
    ResultCodeInfo{
        ErrorCode::StreamStartFailed, "StreamStartFailed", "the stream could not be started",
        "close other programs that use the camera; check its cable and the memory limits"},
};

static_assert(std::is_sorted(table.begin(), table.end(),
                             [](const auto& a, const auto& b) { return a.code < b.code; }));

} // namespace

std::span<const ResultCodeInfo> resultCodes()
{
    return table;
}

const ResultCodeInfo* findResultCode(ErrorCode code)
{
    const auto* found = std::find_if(table.begin(), table.end(),
                                     [code](const auto& entry) { return entry.code == code; });
    return found == table.end() ? nullptr : found;
}

const char* resultName(ErrorCode code)
{
    const ResultCodeInfo* info = findResultCode(code);
    return info ? info->name : "Unknown";
}

std::string describeResult(ErrorCode code)
{
    const ResultCodeInfo* info = findResultCode(code);
    const auto number = static_cast<std::uint32_t>(code);
    std::ostringstream text;
    text << number << ' ' << resultName(code) << " (0x" << std::hex << number
         << "): " << (info ? info->meaning : "a code that the host contract does not know");
    return text.str();
}

} // namespace zrn
