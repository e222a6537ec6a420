#include "common/interrupt.h"
#include "common/service_manager.h"
#include "zrnserve/announcer.h"
#include "zrnserve/camera_list.h"
#include "zrnserve/http_service.h"
#include "zrnserve/lossless_stream.h"
#include "zrnserve/note.h"
#include "zrnserve/reports.h"
#include "zrnserve/rtsp_service.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace
{

constexpr int exitUsage = 2;
constexpr rlim_t mostFiles = 4096;

struct Options {
    zrnserve::AccessOptions access;
    zrnserve::RtspService::Options rtsp;
    int httpPort = 8555;
    std::vector<zrnserve::LosslessStream::Options> srt;
    bool isAnnounced = false;
};

/// A connection is a file: as many as the process may have, within reason.
void allowManyFiles()
{
    rlimit limit;
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::min(limit.rlim_max, mostFiles);
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

/// @param text as SERIAL@PORT
zrnserve::LosslessStream::Options parseSrt(const std::string& text)
{
    const std::size_t at = text.find('@');
    const std::string port = at == std::string::npos ? "" : text.substr(at + 1);
    int number = 0;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
    if (at == 0 || error != std::errc() || end != port.data() + port.size() || number < 1 ||
        number > 65535) {
        throw CLI::ValidationError("--srt", "expected SERIAL@PORT, not " + text);
    }
    return {text.substr(0, at), number};
}

/// As an address names it.
std::string bracketed(const std::string& address)
{
    return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

gboolean tellAlive(gpointer /*data*/)
{
    zrnhost::tellServiceManager("WATCHDOG=1");
    return TRUE;
}

/// The page that lists the cameras, and of each camera the image that all have.
std::vector<zrnserve::Announcer::Service> servicesOf(const zrnserve::CameraList& cameras,
                                                     const zrnserve::RtspService& rtsp,
                                                     const zrnserve::HttpService& http)
{
    const std::string encrypted = rtsp.isEncrypted() ? "s" : "";
    std::vector<zrnserve::Announcer::Service> services = {
        {"zrnserve on %h", "_http" + encrypted + "._tcp", http.port(), "/"}};
    for (const auto& [serial, entry] : cameras.bySerial()) {
        if (entry.isPresent) {
            services.push_back({serial, "_rtsp" + encrypted + "._tcp", rtsp.port(),
                                addressOf(*entry.camera, zrnserve::View::B)});
        }
    }
    return services;
}

void serve(const Options& options, zrnhost::Interrupt& interrupt)
{
    using namespace zrnserve;
    const Access access(options.access);
    WrongPasswords wrongPasswords;
    RtspService* service = nullptr;
    std::function<void()> announce;
    CameraList cameras([&service, &announce](const CameraList::Entry& entry) {
        if (!service) {
            return;
        }
        if (entry.isPresent) {
            service->offer(entry.camera);
        } else {
            service->withdraw(*entry.camera);
        }
        if (announce) {
            announce();
        }
    });
    {
        RtspService rtsp(access, wrongPasswords, options.rtsp);
        service = &rtsp;
        for (const auto& [serial, entry] : cameras.bySerial()) {
            if (entry.isPresent) {
                rtsp.offer(entry.camera);
            }
        }
        LosslessStreams lossless;
        HttpService http(
            access, wrongPasswords, options.httpPort,
            {[&](const std::string& host) { return camerasAsJson(cameras, rtsp, lossless, host); },
             [&] { return metrics(cameras, rtsp, lossless); }});
        for (const LosslessStream::Options& stream : options.srt) {
            lossless.push_back(std::make_unique<LosslessStream>(
                cameras.expect(stream.serial), access.address(), stream.port, access.passphrase()));
        }
        std::optional<Announcer> announcer;
        if (options.isAnnounced) {
            announcer.emplace();
            announce = [&] { announcer->announce(servicesOf(cameras, rtsp, http)); };
            announce();
        }
        const std::string host = bracketed(access.address());
        const char* encrypted = access.certificate() ? "s" : "";
        std::printf("rtsp%s://%s:%d/SERIAL/a, /b and /ab\nhttp%s://%s:%d/\n", encrypted,
                    host.c_str(), rtsp.port(), encrypted, host.c_str(), http.port());
        std::fflush(stdout);

        GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
        {
            // By the loop itself, so that a signal before it runs counts as well.
            const zrnhost::InterruptAction end(interrupt, [loop] {
                g_idle_add(
                    [](gpointer running) -> gboolean {
                        g_main_loop_quit(static_cast<GMainLoop*>(running));
                        return FALSE;
                    },
                    loop);
            });
            // As long as the loop runs, which the list, the addresses and the pages need.
            const auto period = zrnhost::signOfLifePeriod();
            const guint signs =
                period ? g_timeout_add(static_cast<guint>(period->count()), tellAlive, nullptr) : 0;
            zrnhost::tellServiceManager("READY=1");
            g_main_loop_run(loop);
            zrnhost::tellServiceManager("STOPPING=1");
            if (signs != 0) {
                g_source_remove(signs);
            }
        }
        g_main_loop_unref(loop);
        note("ending");
        service = nullptr;
        announcer.reset();
        for (const auto& [serial, entry] : cameras.bySerial()) {
            entry.camera->end();
        }
    }
    for (const auto& [serial, entry] : cameras.bySerial()) {
        entry.camera->close();
    }
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Serves ZRN USB cameras by RTSP, each opened once for all who look.", "zrnserve");
    app.set_version_flag("--version", "zrnserve " ZRN_VERSION);
    Options options;
    app.add_option(
           "--listen", options.access.address,
           "Address to listen on; any but this machine's own needs --users and --certificate")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app.add_option("--port", options.rtsp.port, "Port for RTSP, 0 for any")
        ->check(CLI::Range(0, 65535))
        ->type_name("PORT")
        ->capture_default_str();
    app.add_option("--http-port", options.httpPort, "Port for the list and the metrics, 0 for any")
        ->check(CLI::Range(0, 65535))
        ->type_name("PORT")
        ->capture_default_str();
    bool jpeg = false;
    app.add_flag("--jpeg", jpeg, "Pictures as JPEG instead of H.264");
    app.add_option("--users", options.access.usersFile,
                   "File of who may look, a line USER:PASSWORD each")
        ->type_name("FILE");
    app.add_option("--certificate", options.access.certificateFile,
                   "Certificate in PEM: connections are encrypted")
        ->type_name("FILE");
    app.add_option("--key", options.access.keyFile,
                   "Its key in PEM; without, in the certificate's file")
        ->type_name("FILE");
    std::vector<std::string> srt;
    app.add_option(
           "--srt", srt,
           "Camera whose images are sent without loss by SRT, and the port; may be repeated")
        ->type_name("SERIAL@PORT");
    app.add_option("--srt-passphrase-file", options.access.passphraseFile,
                   "File of the passphrase by which SRT is encrypted")
        ->type_name("FILE");
    app.add_flag("--announce", options.isAnnounced,
                 "Tell the network of the cameras by DNS-SD, through Avahi");
    app.add_option("--max-clients", options.rtsp.mostClients, "How many RTSP clients at once")
        ->check(CLI::Range(1, 2000))
        ->type_name("N")
        ->capture_default_str();
    unsigned mostOfOneAddress = 0;
    app.add_option("--max-clients-per-address", mostOfOneAddress,
                   "How many of them from one address; half of them without this option")
        ->check(CLI::Range(1, 2000))
        ->type_name("N");
    try {
        app.parse(argc, argv);
        std::transform(srt.begin(), srt.end(), std::back_inserter(options.srt), parseSrt);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : exitUsage;
    }
    options.access.mustBeReached = options.isAnnounced;
    options.access.offersSrt = !options.srt.empty();
    if (mostOfOneAddress == 0) {
        mostOfOneAddress = (options.rtsp.mostClients + 1) / 2;
    }
    options.rtsp.mostOfOneAddress = mostOfOneAddress;
    options.rtsp.coding = jpeg ? zrnserve::Coding::Jpeg : zrnserve::Coding::H264;

    // The driver writes a line for each frame otherwise.
    g_setenv("QT_LOGGING_RULES", "*=false", FALSE);
    std::signal(SIGPIPE, SIG_IGN); // a client that has gone is an error of its connection
    allowManyFiles();
    zrnhost::Interrupt interrupt;
    gst_init(nullptr, nullptr);
    try {
        serve(options, interrupt);
        return EXIT_SUCCESS;
    } catch (const zrnserve::WrongOptions& error) {
        zrnserve::note("%s", error.what());
        return exitUsage;
    } catch (const std::exception& error) {
        zrnserve::note("%s", error.what());
        return EXIT_FAILURE;
    }
}
