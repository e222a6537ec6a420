#include "camera_task.h"
#include "client/camera_recorder.h"
#include "client/error.h"
#include "record/options.h"
#include "record/progress.h"
#include "record/report.h"
#include "record/signs_of_life.h"
#include "triggers.h"

#include <csignal>
#include <future>

namespace
{

/// What the cameras of a run share.
struct Recording {
    const RecordOptions& options;
    std::shared_ptr<zrn::RecordingSession> session;
    RecordProgress progress;
    SignsOfLife signs;
};

RecordResult streamInto(zrn::CameraRecorder& recorder, const CameraPointer& camera,
                        Context& context, Recording& recording)
{
    constexpr std::chrono::milliseconds progressPeriod(100);
    Teller teller(recording.progress, recording.session->plan(), context.name);
    std::promise<zrn::Stream*> started;
    zrn::StreamOptions options;
    options.keepAlive = true;
    if (const std::optional<int> wait = recording.options.capture.waitMilliseconds) {
        options.patience = std::chrono::milliseconds(*wait);
    }
    options.onFrame = [&recorder, stream = started.get_future().share()](const zrn::Frame& frame) {
        recorder.add(frame, stream.get()->counters().lost);
    };
    options.onEvent = [&](const zrn::StreamEvent& event) {
        recorder.note(event);
        teller.note(event);
    };
    RecordResult result;
    SignsOfLife::OfCamera signs(recording.signs, context.name);
    {
        zrn::Stream stream(camera, std::move(options));
        started.set_value(&stream);
        // Also while this thread waits for a terminal that takes no text.
        const zrnhost::InterruptAction stopping(context.interrupt,
                                                [&recorder] { recorder.stop(); });
        const auto start = std::chrono::steady_clock::now();
        while (!recorder.waitUntilDone(progressPeriod) && !context.interrupt.requested()) {
            teller.tell(recorder.progress());
            signs.tell(stream.counters());
        }
        result.isOut = stream.counters().outage.has_value();
        stream.stop();
        result.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        result.streamed = stream.counters().frames;
        result.outages = stream.outages();
    }
    recorder.stop();
    do {
        teller.tell(recorder.progress());
        signs.tellWriting();
    } while (!recorder.waitUntilDone(progressPeriod));
    recorder.finish();
    teller.tell(recorder.progress());
    result.parts = recorder.parts();
    return result;
}

ExitCode recordCamera(const CameraPointer& camera, Context& context, Recording& recording)
{
    applyCaptureOptions(*camera, recording.options.capture);
    camera->readSettings(); // files and frames name what was read last
    const zrn::CameraFacts facts = camera->facts();
    context.report.line(QStringLiteral("camera"), textOf(facts));
    context.report.json()[QLatin1String("camera")] = ::jsonOf(facts);

    zrn::CameraRecorder recorder(recording.session, facts.serial,
                                 [camera] { return zrn::metadataOf(*camera); });
    recorder.watch(*camera);
    try {
        return report(context, *recording.session,
                      streamInto(recorder, camera, context, recording));
    } catch (const zrn::Error& error) {
        recorder.stop(error.what());
        throw;
    }
}

ExitCode runRecord(Context& context, const RecordOptions& options)
{
    std::signal(SIGPIPE, SIG_IGN); // a recording outlives who reads its notes
    const auto session = std::make_shared<zrn::RecordingSession>(planOf(options));
    Recording recording{options, session, RecordProgress(context.options.quiet), {}};
    std::optional<Triggers> triggers;
    if (options.before) {
        triggers.emplace([session] { session->trigger(); });
    }
    return runOnCameras(context, {[&](const CameraPointer& camera, Context& own) {
                                      return recordCamera(camera, own, recording);
                                  },
                                  true, recordRow, framesSum});
}

} // namespace

Command addRecord(CLI::App& app)
{
    CLI::App& command =
        addSubcommand(app, "record", "Record every frame of one or several cameras into files",
                      "record --all -o recordings --seconds 10min --segment 1GB");
    const auto options = std::make_shared<RecordOptions>();
    addRecordOptions(command, *options);
    return {&command,
            [options](Context& context) { return runRecord(context, *options); },
            true,
            {},
            true};
}
