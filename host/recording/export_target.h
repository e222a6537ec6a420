#pragma once

#include "client/frame.h"
#include "recording/frame_facts.h"

#include <QJsonObject>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zrnrec
{

/// Frames that go into one file together: their images are of one size and have the same letters.
struct Stack {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::string letters;        ///< of the images of each frame: "A", "B" or "AB"
    std::vector<int> positions; ///< in the recording; those that turn out damaged are left out

    [[nodiscard]] std::size_t pixels() const { return std::size_t{width} * height; }
};

enum class VideoCodec { Ffv1, H264 };

/// What is written, and where to.
struct ExportJob {
    std::string path; ///< of the file, or of the folder
    Stack stack;      ///< without size and letters for formats that take frames of any
    RecordingFacts recording;
    VideoCodec codec = VideoCodec::Ffv1;
    std::function<bool()> isStopped; ///< whether the user wants it to end; from any thread
    std::function<void(const std::string&)> onWaiting; ///< told what is still done
};

/// A frame on its way into a file.
struct ExportFrame {
    zrn::Frame frame; ///< only the images that are wanted
    FrameFacts facts;
};

/// Takes the frames of a recording. What is not finished leaves nothing behind that looks whole.
///
/// Thread safety: thread-bound.
class ExportTarget
{
public:
    virtual ~ExportTarget() = default;

    /// @throws zrn::Error when it cannot be written
    virtual void write(const ExportFrame& frame) = 0;
    /// Makes it complete; nothing may follow. @throws zrn::Error
    virtual void finish() = 0;
    /// Frames that are there and stay if it is not finished.
    [[nodiscard]] virtual int kept() const { return 0; }

protected:
    ExportTarget() = default;
    ExportTarget(const ExportTarget&) = default;
    ExportTarget& operator=(const ExportTarget&) = default;
};

/// A way to write frames.
struct ExportFormat {
    enum class Takes {
        Anything, ///< frames of any size, with any images
        Stack,    ///< a file for each size
    };
    using Make = std::unique_ptr<ExportTarget> (*)(const ExportJob&);

    std::string name;
    std::string suffix; ///< of its files; empty: it writes into a folder
    Takes takes = Takes::Stack;
    Make make = nullptr; ///< null: the build was without its library
    std::string package; ///< of that
};

/// By the name of --to.
const std::vector<ExportFormat>& exportFormats();

} // namespace zrnrec
