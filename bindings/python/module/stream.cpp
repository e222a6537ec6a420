#include "client/stream.h"

#include "camera.h"
#include "errors.h"
#include "frame.h"
#include "module.h"
#include "waiting.h"

#include <cerrno>
#include <optional>
#include <poll.h>
#include <pybind11/stl.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace zrnpy
{
namespace
{

using Clock = std::chrono::steady_clock;

/// A file descriptor that can be read while something may wait to be taken.
class Bell
{
public:
    Bell()
        : m_file(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (m_file < 0) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }
    ~Bell() { ::close(m_file); }
    Bell(const Bell&) = delete;
    Bell& operator=(const Bell&) = delete;

    [[nodiscard]] int file() const { return m_file; }
    void ring() const { static_cast<void>(::eventfd_write(m_file, 1)); }
    void silence() const
    {
        eventfd_t count = 0;
        static_cast<void>(::eventfd_read(m_file, &count));
    }
    void wait(std::chrono::milliseconds longest) const
    {
        pollfd request{m_file, POLLIN, 0};
        static_cast<void>(::poll(&request, 1, static_cast<int>(longest.count())));
    }

private:
    const int m_file;
};

zrn::QueuePolicy policyFrom(const std::string& name)
{
    if (name == "newest") {
        return zrn::QueuePolicy::Newest;
    }
    if (name == "block") {
        return zrn::QueuePolicy::Block;
    }
    if (name != "all") {
        throw py::value_error("policy is \"newest\", \"all\" or \"block\"");
    }
    return zrn::QueuePolicy::All;
}

const char* nameOf(zrn::StreamEvent::Kind kind)
{
    using enum zrn::StreamEvent::Kind;
    switch (kind) {
    case Lost:
        return "lost";
    case Refused:
        return "refused";
    case Restarted:
        return "restarted";
    case Back:
        break;
    }
    return "back";
}

/// A stream whose frames and events Python's threads take; none of its own threads knows Python.
class Stream
{
public:
    /// @param timeout seconds that next() waits; none: @p slack and twice the exposure
    Stream(const Camera& camera, const std::string& policy, std::size_t capacity, bool keepAlive,
           std::optional<double> timeout, double slack)
        : m_timeout(timeout)
        , m_slack(slack)
        , m_ends(camera.streamEnds())
        , m_stream(start(camera, policy, capacity, keepAlive))
    {
    }
    ~Stream()
    {
        const StreamEnds::UnderWay end(*m_ends);
        std::shared_ptr<zrn::Stream> stream = m_stream.take();
        unlocked([&stream] { stream.reset(); });
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// A frame, an event, or None when there was neither for this long, or the stream has ended.
    /// @param seconds none: as long as patience() says
    py::object next(std::optional<double> seconds)
    {
        std::shared_ptr<zrn::Stream> stream = m_stream.get();
        py::object item = stream ? take(*stream) : py::none();
        if (!stream || !item.is_none()) {
            return item;
        }
        const std::chrono::duration<double> longest(
            std::min(seconds ? *seconds : patienceWith(*stream), longestWait));
        const auto end = Clock::now() + longest;
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
            const bool isLast = left.count() <= 0 || stream->isStopped();
            if (!isLast) {
                stream.reset(); // whoever closes it ends it
                unlocked([&] { m_bell->wait(std::min(left, waitSlice)); });
                handleSignals();
                stream = m_stream.get();
                if (!stream) {
                    return py::none();
                }
            }
            m_bell->silence();
            item = take(*stream);
            if (stream->isReady()) {
                m_bell->ring(); // there is more, and the end is for all who wait
            }
            if (!item.is_none() || isLast) {
                return item;
            }
        }
    }

    /// Seconds that next() waits unless it is told otherwise; 0 when the stream has ended.
    [[nodiscard]] double patience() const
    {
        const std::shared_ptr<zrn::Stream> stream = m_stream.get();
        return stream ? patienceWith(*stream) : 0.0;
    }

    void close()
    {
        std::shared_ptr<zrn::Stream> stream = m_stream.get();
        if (!stream) {
            return;
        }
        const StreamEnds::UnderWay end(*m_ends);
        unlocked([&stream] { stream->stop(); });
        m_counters = stream->counters();
        stream = m_stream.take();
        unlocked([&stream] { stream.reset(); });
    }

    [[nodiscard]] int file() const { return m_bell->file(); }
    [[nodiscard]] bool isStopped() const
    {
        const std::shared_ptr<zrn::Stream> stream = m_stream.get();
        return !stream || stream->isStopped();
    }
    /// Whether its camera does not answer; never, when it has ended.
    [[nodiscard]] bool isCameraGone() const
    {
        std::shared_ptr<zrn::Stream> stream = m_stream.get();
        if (!stream) {
            return false;
        }
        const std::shared_ptr<zrn::Camera> camera = stream->camera();
        stream.reset(); // whoever closes it ends it
        return interruptible([camera] { return !camera->status().isOnline; });
    }
    [[nodiscard]] zrn::StreamCounters counters() const
    {
        const std::shared_ptr<zrn::Stream> stream = m_stream.get();
        return stream ? stream->counters() : m_counters;
    }

private:
    static constexpr double longestWait = 1e9; // seconds

    std::shared_ptr<zrn::Stream> start(const Camera& camera, const std::string& policy,
                                       std::size_t capacity, bool keepAlive)
    {
        zrn::StreamOptions options;
        options.policy = policyFrom(policy);
        options.capacity = capacity;
        options.keepAlive = keepAlive;
        options.onReady = [bell = m_bell] { bell->ring(); };
        const std::shared_ptr<zrn::Camera> held = camera.get();
        return interruptible([held, options, ends = m_ends] {
            ends->wait();
            return orGone(*held, [&] { return std::make_shared<zrn::Stream>(held, options); });
        });
    }

    /// What waits, events first.
    py::object take(zrn::Stream& stream)
    {
        if (auto event = stream.nextEvent()) {
            return py::cast(std::move(*event));
        }
        if (auto frame = stream.next({})) {
            return py::cast(std::make_unique<Frame>(std::move(*frame)));
        }
        return py::none();
    }

    [[nodiscard]] double patienceWith(const zrn::Stream& stream) const
    {
        const std::chrono::duration<double> exposure = stream.camera()->knownExposure();
        return m_timeout.value_or(m_slack + 2 * exposure.count());
    }

    const std::shared_ptr<Bell> m_bell = std::make_shared<Bell>();
    const std::optional<double> m_timeout; // seconds, as the next
    const double m_slack;
    zrn::StreamCounters m_counters; // when it was closed
    const std::shared_ptr<StreamEnds> m_ends;
    ProcessBound<zrn::Stream> m_stream;
};

void addEvents(py::module_& module)
{
    using zrn::StreamEvent;
    py::class_<StreamEvent>(module, "Event", "What happened to a stream that is kept alive.")
        .def_property_readonly(
            "kind", [](const StreamEvent& event) { return nameOf(event.kind); },
            "\"lost\": no frames any more; \"refused\": the camera is there, but cannot be had, "
            "see `reason`; \"restarted\": frames again, after a restart of the stream; \"back\": "
            "frames again, after the camera was opened anew.")
        .def_readonly("reason", &StreamEvent::reason, "Why it was refused; otherwise empty.")
        .def_property_readonly(
            "cause", [](const StreamEvent& event) { return zrn::nameOf(event.outage.cause); },
            "\"silent\": the camera answers; \"gone\": it does not.")
        .def_property_readonly(
            "begin", [](const StreamEvent& event) { return event.outage.begin; },
            "Seconds into the stream: the last frame before.")
        .def_property_readonly(
            "seconds", [](const StreamEvent& event) { return event.outage.seconds; },
            "Length of the outage, once it is over.")
        .def_property_readonly(
            "missing", [](const StreamEvent& event) { return event.outage.missing; },
            "Frame numbers that were skipped, once it is over.")
        .def_property_readonly(
            "missing_is_exact",
            [](const StreamEvent& event) { return event.outage.isMissingExact; },
            "Whether that is all of them: long outages skip more than frame numbers tell.")
        .def("__repr__", [](const StreamEvent& event) {
            const std::string more = event.reason.empty() ? event.outage.text() : event.reason;
            return std::string("<Event ") + nameOf(event.kind) + ": " + more + ">";
        });

    using Counters = zrn::StreamCounters;
    py::class_<Counters>(module, "Counters", "What a stream has seen since it was started.")
        .def_readonly("frames", &Counters::frames, "Frames that came from the driver.")
        .def_property_readonly("missing", &Counters::missing, "Frame numbers that were skipped.")
        .def_property_readonly(
            "lost_camera", [](const Counters& counters) { return counters.lost.camera; },
            "Of these, lost in the camera or on the way from it.")
        .def_property_readonly(
            "lost_library", [](const Counters& counters) { return counters.lost.library; },
            "Of these, dropped by libuvc for newer ones before the driver got them.")
        .def_property_readonly(
            "lost_ring", [](const Counters& counters) { return counters.lost.ring; },
            "Of these, overwritten in the driver's ring.")
        .def_property_readonly(
            "lost_queue", [](const Counters& counters) { return counters.lost.queue; },
            "Frames that were not taken in time, and made room for others.")
        .def_readonly("gaps", &Counters::gaps, "Places where frame numbers are missing.")
        .def_readonly("timeouts", &Counters::timeouts, "Waits of the driver in vain.")
        .def_readonly("unusable", &Counters::unusable, "Frames that could not be unpacked.")
        .def("__repr__", [](const Counters& counters) {
            return "<Counters: " + std::to_string(counters.frames) + " frames, " +
                   std::to_string(counters.missing()) + " missing, " +
                   std::to_string(counters.lost.queue) + " dropped>";
        });
}

} // namespace

void addStreams(py::module_& module)
{
    addEvents(module);
    py::class_<Stream>(module, "Stream", "A running stream.")
        .def("next", &Stream::next, py::arg("seconds") = py::none())
        .def("close", &Stream::close)
        .def("fileno", &Stream::file)
        .def_property_readonly("stopped", &Stream::isStopped)
        .def_property_readonly("patience", &Stream::patience)
        .def("camera_gone", &Stream::isCameraGone)
        .def_property_readonly("counters", &Stream::counters);
    module.def(
        "start_stream",
        [](const Camera& camera, const std::string& policy, std::size_t capacity, bool keepAlive,
           std::optional<double> timeout, double slack) {
            return std::make_unique<Stream>(camera, policy, capacity, keepAlive, timeout, slack);
        },
        py::arg("camera"), py::arg("policy"), py::arg("capacity"), py::arg("keep_alive"),
        py::arg("timeout"), py::arg("slack"));
}

} // namespace zrnpy
