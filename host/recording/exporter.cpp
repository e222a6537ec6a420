#include "recording/exporter.h"

#include "client/error.h"
#include "client/recording.h"
#include "recording/target_file.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <filesystem>
#include <future>
#include <map>
#include <optional>
#include <system_error>
#include <tuple>

namespace zrnrec
{
namespace
{

using zrn::Error;
using zrn::Frame;
using zrn::Recording;

/// Takes away the images that are not wanted.
void keepImages(Frame& frame, char letter)
{
    if (letter == 0) {
        return;
    }
    const zrn::Image* const wanted = frame.image(letter);
    frame.stored = {wanted ? *wanted : zrn::Image()};
    frame.imageCount = wanted ? 1 : 0;
}

std::string lettersOf(const Frame& frame)
{
    std::string letters;
    for (const zrn::Image& image : frame.images()) {
        letters += image.letter;
    }
    return letters;
}

/// Reads and checks frames in their order, a few of them ahead: the processors that do not write
/// have nothing else to do.
class FrameReader
{
public:
    FrameReader(const Recording& recording, const std::vector<int>& positions)
        : m_recording(recording)
        , m_positions(positions)
    {
        fill();
    }

    /// @throws Error when it is damaged; the next one may be whole
    Frame next()
    {
        std::future<Frame> frame = std::move(m_ahead.front());
        m_ahead.pop_front();
        fill();
        return frame.get();
    }

private:
    static constexpr std::size_t mostAhead = 3;

    void fill()
    {
        while (m_ahead.size() < mostAhead && m_begun < m_positions.size()) {
            m_ahead.push_back(std::async(std::launch::async, &Recording::frame, &m_recording,
                                         m_positions[m_begun]));
            ++m_begun;
        }
    }

    const Recording& m_recording;
    const std::vector<int>& m_positions;
    std::size_t m_begun = 0;
    std::deque<std::future<Frame>> m_ahead;
};

/// One run of the program.
class Export
{
public:
    Export(const ExportRequest& request, const zrnhost::Interrupt& interrupt,
           zrnhost::Progress& progress)
        : m_request(request)
        , m_interrupt(interrupt)
        , m_progress(progress)
        , m_recording(request.recording)
    {
        m_job.recording = factsOf(m_recording, request.recording);
        m_job.codec = request.codec;
        m_job.isStopped = [this] { return m_interrupt.requested(); };
        m_job.onWaiting = [this](const std::string& text) {
            m_progress.show(QString::fromStdString(text));
        };
    }

    ExportResult run()
    {
        const std::vector<std::string> others = m_recording.otherDamage();
        for (const std::string& what : others) {
            note(what);
        }
        m_result.isDamagedElsewhere = !others.empty();
        if (!m_recording.isComplete() && others.empty()) {
            note("the recording was cut off: " + std::to_string(m_recording.lostBytes()) +
                 " bytes behind its last whole frame are lost");
        }
        const std::vector<Stack> stacks = plan();
        for (const Stack& stack : stacks) {
            m_job.stack = stack;
            m_job.path = pathOf(stack, stacks);
            if (!write()) {
                m_result.isInterrupted = true;
                break;
            }
        }
        return m_result;
    }

private:
    using Clock = std::chrono::steady_clock;

    void note(const std::string& text) { m_progress.note(QString::fromStdString(text)); }

    void leaveOut(const Error& error)
    {
        ++m_result.damaged;
        note(std::string(error.what()) + "; it is left out");
    }

    /// What goes into each file, as far as the headers tell.
    std::vector<Stack> plan()
    {
        const bool isOne = m_request.format.takes == ExportFormat::Takes::Anything;
        std::vector<Stack> stacks(isOne ? 1 : 0);
        std::map<std::tuple<std::uint32_t, std::uint32_t, std::string>, std::size_t> known;
        int wanted = 0;
        for (std::int64_t i = m_request.first;
             i < m_recording.frameCount() && wanted < m_request.count; i += m_request.every) {
            const int position = static_cast<int>(i);
            ++wanted;
            try {
                Frame frame = m_recording.view(position);
                keepImages(frame, m_request.letter);
                const std::string letters = lettersOf(frame);
                if (letters.empty()) {
                    ++m_result.without;
                    continue;
                }
                std::size_t place = 0;
                if (!isOne) {
                    place = known.try_emplace({frame.width, frame.height, letters}, stacks.size())
                                .first->second;
                    if (place == stacks.size()) {
                        stacks.push_back({frame.width, frame.height, letters, {}});
                    }
                }
                stacks[place].positions.push_back(position);
                ++m_planned;
            } catch (const Error& error) {
                leaveOut(error);
            }
        }
        return stacks;
    }

    /// With the size in the name, where there are several.
    [[nodiscard]] std::string pathOf(const Stack& stack, const std::vector<Stack>& all) const
    {
        const std::string& suffix = m_request.format.suffix;
        std::string path = m_request.target;
        if (path.empty()) {
            path = isFolder() ? "."
                              : std::filesystem::path(m_request.recording).stem().string() + suffix;
        }
        if (all.size() == 1) {
            return path;
        }
        const auto hasOtherImages = [&stack](const Stack& other) {
            return other.width == stack.width && other.height == stack.height &&
                   other.letters != stack.letters;
        };
        const std::string part =
            '_' + std::to_string(stack.width) + 'x' + std::to_string(stack.height) +
            (std::ranges::any_of(all, hasOtherImages) ? '_' + stack.letters : std::string());
        // Before the format's own suffix, or any.
        const std::size_t name = path.find_last_of('/') + 1;
        std::size_t end = path.ends_with(suffix) ? path.size() - suffix.size() : path.rfind('.');
        end = end == std::string::npos || end <= name ? path.size() : end;
        return path.insert(end, part);
    }

    /// @return false when the user wants no more
    bool write()
    {
        std::error_code ignored;
        if (std::filesystem::equivalent(m_job.path, m_request.recording, ignored)) {
            failToWrite(m_job.path, "is the recording itself");
        }
        const std::unique_ptr<ExportTarget> target = m_request.format.make(m_job);
        try {
            return writeTo(*target);
        } catch (const Error& error) {
            const std::string left = isFolder()
                                         ? std::to_string(target->kept()) + " frames are there"
                                         : std::string("what there was of it is removed");
            throw Error(error.kind(), error.name(), std::string(error.what()) + "; " + left,
                        error.remedy());
        }
    }

    bool writeTo(ExportTarget& target)
    {
        FrameReader reader(m_recording, m_job.stack.positions);
        int written = 0;
        for (const int position : m_job.stack.positions) {
            if (m_interrupt.requested()) {
                break;
            }
            tell();
            ++m_begun;
            if (const std::optional<ExportFrame> frame = read(reader, position)) {
                target.write(*frame);
                ++written;
            }
        }
        const bool isWorthIt =
            written > 0 || m_request.format.takes == ExportFormat::Takes::Anything;
        const bool isFinished = isWorthIt && finish(target);
        if (isFinished) {
            m_result.files.push_back(m_job.path);
        }
        m_result.frames += isFinished ? written : target.kept();
        return isFinished || !m_interrupt.requested();
    }

    std::optional<ExportFrame> read(FrameReader& reader, int position)
    {
        try {
            Frame frame = reader.next();
            keepImages(frame, m_request.letter);
            return ExportFrame{frame, factsOf(m_recording, position, frame)};
        } catch (const Error& error) {
            leaveOut(error);
            return std::nullopt;
        }
    }

    /// @return false when the user wanted an end before it was there
    bool finish(ExportTarget& target)
    {
        if (m_interrupt.requested()) {
            return false;
        }
        try {
            target.finish();
            return true;
        } catch (const Error&) {
            if (m_interrupt.requested()) {
                return false;
            }
            throw;
        }
    }

    [[nodiscard]] bool isFolder() const { return m_request.format.suffix.empty(); }

    void tell()
    {
        const double seconds = std::chrono::duration<double>(Clock::now() - m_start).count();
        const double rate = seconds > 0 ? m_begun / seconds : 0;
        QString text = QStringLiteral("frame %1 of %2").arg(m_begun + 1).arg(m_planned);
        if (rate > 0) {
            text += QStringLiteral(", %1 frames/s, %2 s left")
                        .arg(rate, 0, 'f', 0)
                        .arg((m_planned - m_begun) / rate, 0, 'f', 0);
        }
        m_progress.show(text);
    }

    const ExportRequest& m_request;
    const zrnhost::Interrupt& m_interrupt;
    zrnhost::Progress& m_progress;
    const Recording m_recording;
    const Clock::time_point m_start = Clock::now();
    ExportJob m_job;
    ExportResult m_result;
    int m_planned = 0;
    int m_begun = 0;
};

} // namespace

ExportResult exportRecording(const ExportRequest& request, const zrnhost::Interrupt& interrupt,
                             zrnhost::Progress& progress)
{
    return Export(request, interrupt, progress).run();
}

} // namespace zrnrec
