#include "control/control_client.h"
#include "control/control_server.h"
#include "launcher/child.h"
#include "launcher/preload.h"
#include "model/bus.h"
#include "umockdev/umockdev_bus.h"
#include "usbredir/usbredir_bus.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <glib-unix.h>
#include <iostream>
#include <memory>
#include <string>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr int exitUsage = 2;
constexpr int exitCannotStart = 127; // as a shell answers for a command that it cannot run

struct Arguments {
    std::vector<std::string> cameras;
    unsigned gadgets = 0;
    std::size_t memoryLimitMiB = 0;
    std::filesystem::path redirectFolder;
    std::vector<std::string> command;
};

void printModels()
{
    for (const zrnsim::CameraConfig& preset : zrnsim::cameraPresets()) {
        std::printf("%-18s %s\n", preset.model.c_str(), preset.summary.c_str());
    }
}

std::string keyHelp()
{
    std::string text = "Keys of --camera MODEL,KEY=VALUE...:\n";
    for (const zrnsim::ConfigKey& key : zrnsim::configKeys()) {
        std::string line = "  " + std::string(key.name) + "=" + std::string(key.value);
        line.resize(std::max<std::size_t>(line.size() + 2, 40), ' ');
        text += line + std::string(key.help) + "\n";
    }
    return text;
}

/// Only a process that was started with umockdev's library can announce devices.
void restartUnderPreload(char** argv)
{
    if (zrnsim::isPreloaded()) {
        return;
    }
    const char* const wanted = std::getenv("LD_PRELOAD");
    if (wanted != nullptr && std::strstr(wanted, zrnsim::preloadLibrary) != nullptr) {
        throw std::runtime_error("cannot load " + std::string(zrnsim::preloadLibrary) +
                                 ", which the Debian package umockdev provides");
    }
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    setenv("LD_PRELOAD", zrnsim::preloadFor(self).c_str(), 1);
    execv(self.c_str(), argv);
    throw std::system_error(errno, std::generic_category(), "cannot restart under umockdev");
}

zrnsim::CameraList makeCameras(const std::vector<std::string>& texts)
{
    zrnsim::CameraList cameras;
    for (const std::string& text : texts) {
        auto composer = std::make_shared<zrnsim::FrameComposer>();
        cameras.push_back(std::make_unique<zrnsim::Camera>(
            zrnsim::parseCamera(text, static_cast<unsigned>(cameras.size() + 1)),
            [composer](const zrnsim::FrameRequest& request, zrnsim::Bytes& frame) {
                composer->compose(request, frame);
            }));
    }
    return cameras;
}

/// The command while it runs.
struct Session {
    GMainLoop* loop = nullptr;
    int signals = -1;
    pid_t child = -1;
    int status = 0;
};

gboolean onSignal(gint fd, GIOCondition, gpointer data)
{
    const auto& session = *static_cast<Session*>(data);
    signalfd_siginfo info{};
    while (read(fd, &info, sizeof info) == sizeof info) {
        // What the terminal sends, the command has received itself.
        if (info.ssi_code != SI_KERNEL) {
            kill(session.child, static_cast<int>(info.ssi_signo));
        }
    }
    return G_SOURCE_CONTINUE;
}

void onExit(GPid, gint waitStatus, gpointer data)
{
    auto& session = *static_cast<Session*>(data);
    session.status = zrnsim::exitStatus(waitStatus);
    g_main_loop_quit(session.loop);
}

/// Runs the command beside a control socket, and returns its exit status.
int runCommand(const Arguments& arguments, int signals, zrnsim::CameraList& cameras,
               zrnsim::Bus& bus, const std::string& controlSocket,
               std::vector<std::string> environment)
{
    zrnsim::CommandProcessor processor(cameras, bus);
    const zrnsim::ControlServer server(processor, controlSocket);
    environment.push_back(std::string(zrnsim::controlVariable) + "=" + controlSocket);

    Session session;
    session.signals = signals;
    session.loop = g_main_loop_new(nullptr, FALSE);
    session.child = zrnsim::startCommand(arguments.command, environment);
    g_child_watch_add(session.child, onExit, &session);
    g_unix_fd_add(session.signals, G_IO_IN, onSignal, &session);
    g_main_loop_run(session.loop);
    g_main_loop_unref(session.loop);
    return session.status;
}

/// The command itself finds the cameras.
int runWithDevices(const Arguments& arguments)
{
    const int signals = zrnsim::forwardableSignals();
    zrnsim::CameraList cameras = makeCameras(arguments.cameras);
    zrnsim::GadgetList gadgets;
    while (gadgets.size() < arguments.gadgets) {
        gadgets.push_back(
            std::make_unique<zrnsim::Gadget>(static_cast<unsigned>(gadgets.size() + 1)));
    }
    zrnsim::UmockdevBus bus(cameras, gadgets, {arguments.memoryLimitMiB << 20U});
    return runCommand(arguments, signals, cameras, bus, bus.rootFolder() + "/control",
                      {"LD_PRELOAD=" + zrnsim::preloadFor(arguments.command.front())});
}

/// The command is or starts a virtual machine, which connects to the sockets in the folder.
int runWithSockets(const Arguments& arguments)
{
    const int signals = zrnsim::forwardableSignals();
    const std::filesystem::path& folder = arguments.redirectFolder;
    zrnsim::CameraList cameras = makeCameras(arguments.cameras);
    zrnsim::UsbRedirBus bus(cameras, folder);
    return runCommand(arguments, signals, cameras, bus, folder / "control", {});
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Runs a command that finds virtual cameras on its USB bus.", "zrnsim");
    app.set_version_flag("--version", "zrnsim " ZRN_VERSION);
    Arguments arguments;
    bool listsModels = false;
    app.add_option("--camera", arguments.cameras, "MODEL[,KEY=VALUE...], once for each camera")
        ->allow_extra_args(false)
        ->default_str("type0");
    CLI::Option* const gadgets = app.add_option(
        "--gadgets", arguments.gadgets,
        "Number of devices 1234:5678 beside the cameras, with an endpoint of each kind");
    app.add_option("--usbfs-memory", arguments.memoryLimitMiB,
                   "MiB that a camera's submitted transfers may take, 0 for no limit");
    app.add_option("--usbredir", arguments.redirectFolder,
                   "Folder for UNIX sockets at which a virtual machine finds the cameras: camera0, "
                   "camera1, ... speak the usbredir protocol")
        ->check(CLI::ExistingDirectory)
        ->excludes(gadgets);
    app.add_flag("--list-models", listsModels, "Print the camera models and exit");
    app.add_option("command", arguments.command, "Command to run, after --");
    app.positionals_at_end();
    app.footer(keyHelp());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : exitUsage;
    }

    try {
        if (listsModels) {
            printModels();
            return EXIT_SUCCESS;
        }
        if (arguments.command.empty()) {
            std::cerr << "zrnsim: no command is given\n" << app.help();
            return exitUsage;
        }
        if (arguments.cameras.empty()) {
            arguments.cameras = {"type0"};
        }
        if (!arguments.redirectFolder.empty()) {
            return runWithSockets(arguments);
        }
        restartUnderPreload(argv);
        return runWithDevices(arguments);
    } catch (const zrnsim::ConfigError& error) {
        std::cerr << "zrnsim: " << error.what() << '\n';
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "zrnsim: " << error.what() << '\n';
        return exitCannotStart;
    }
}
