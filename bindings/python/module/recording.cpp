#include "client/recording.h"

#include "camera.h"
#include "client/recorder.h"
#include "frame.h"
#include "module.h"
#include "waiting.h"

#include <pybind11/stl.h>

namespace zrnpy
{
namespace
{

using zrn::Recording;

/// A recorder, and what gives it notes.
struct Recorder : zrn::Recorder {
    using zrn::Recorder::Recorder;
    std::vector<std::shared_ptr<void>> watches;
};

/// A recorder, whose thread a forked child does not have.
class BoundRecorder
{
public:
    BoundRecorder(const std::string& path, const std::string& metadata)
        : m_recorder(std::make_shared<Recorder>(path, metadata))
    {
    }
    ~BoundRecorder()
    {
        std::shared_ptr<Recorder> recorder = m_recorder.take();
        unlocked([&recorder] { recorder.reset(); });
    }
    BoundRecorder(const BoundRecorder&) = delete;
    BoundRecorder& operator=(const BoundRecorder&) = delete;

    bool add(const Frame& frame) const
    {
        const std::shared_ptr<Recorder> recorder = m_recorder.get();
        return unlocked([&] { return recorder->add(frame.get()); });
    }
    void note(const std::string& text) const
    {
        m_recorder.get()->note({std::chrono::steady_clock::now(), text});
    }
    void watch(const Camera& camera) const
    {
        const std::shared_ptr<Recorder> recorder = m_recorder.get();
        const std::shared_ptr<zrn::Camera> watched = camera.get();
        interruptible([watched] { watched->readSettings(); });
        recorder->watches.push_back(
            watched->watchSettings([to = recorder.get()](const zrn::SettingChange& setting) {
                to->note(zrn::noteOf(setting));
            }));
    }
    void finish() const
    {
        const std::shared_ptr<Recorder> recorder = m_recorder.get();
        interruptible([recorder] { recorder->finish(); });
    }
    [[nodiscard]] zrn::RecordingProgress progress() const { return m_recorder.get()->progress(); }

private:
    ProcessBound<Recorder> m_recorder;
};

} // namespace

void addRecordings(py::module_& module)
{
    py::class_<Recording>(module, "Recording", "A recording that is read.")
        .def("__len__", &Recording::frameCount)
        .def(
            "frame",
            [](const Recording& recording, int position) {
                return std::make_unique<Frame>(unlocked([&] { return recording.frame(position); }));
            },
            py::arg("position"))
        .def(
            "view",
            [](const Recording& recording, int position) {
                return std::make_unique<Frame>(recording.view(position));
            },
            py::arg("position"))
        .def_property_readonly("metadata", &Recording::metadata)
        .def_property_readonly("complete", &Recording::isComplete)
        .def_property_readonly("version", &Recording::version)
        .def_property_readonly(
            "notes",
            [](const Recording& recording) {
                std::vector<std::pair<std::int64_t, std::string>> notes;
                for (const zrn::RecordingNote& note : recording.notes()) {
                    notes.emplace_back(
                        std::chrono::nanoseconds(note.time.time_since_epoch()).count(), note.text);
                }
                return notes;
            })
        .def(
            "wall_time_ns",
            [](const Recording& recording, std::int64_t time) -> std::optional<std::int64_t> {
                const auto date =
                    recording.wallTime(zrn::FrameTimes::time_point(std::chrono::nanoseconds(time)),
                                       zrn::WallClock::Kind::Realtime);
                return date ? std::optional<std::int64_t>(date->sinceEpoch.count()) : std::nullopt;
            },
            py::arg("time_ns"))
        .def_property_readonly("seconds", [](const Recording& recording) {
            return std::chrono::duration<double>(recording.duration()).count();
        });

    py::class_<BoundRecorder>(module, "Recorder", "A recording that is written.")
        .def("add", &BoundRecorder::add, py::arg("frame"))
        .def("note", &BoundRecorder::note, py::arg("text"))
        .def("watch", &BoundRecorder::watch, py::arg("camera"))
        .def("finish", &BoundRecorder::finish)
        .def_property_readonly(
            "frames", [](const BoundRecorder& recorder) { return recorder.progress().frames; })
        .def_property_readonly(
            "error", [](const BoundRecorder& recorder) { return recorder.progress().error; });
    module.def(
        "read_recording",
        [](const std::string& path) {
            return unlocked([&path] { return std::make_unique<Recording>(path); });
        },
        py::arg("path"));
    module.def(
        "write_recording",
        [](const std::string& path, const std::string& metadata) {
            return std::make_unique<BoundRecorder>(path, metadata);
        },
        py::arg("path"), py::arg("metadata"));
}

} // namespace zrnpy
