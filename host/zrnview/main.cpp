#include "client/error.h"
#include "common/library_noise.h"
#include "common/virtual_run.h"
#include "zrnview/device/bench.h"
#include "zrnview/orderly_end.h"
#include "zrnview/screen_search.h"
#include "zrnview/widgets/main_window.h"
#include "zrnview/widgets/preferences.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QApplication>
#include <QLoggingCategory>
#include <QProcess>
#include <QScreen>
#include <QStandardPaths>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>

namespace
{

constexpr int exitUsage = 2;

struct Options {
    std::string plugin;
    std::vector<std::string> virtualModels;
    std::string folder;
    std::string theme; ///< empty: as in the last run
    std::optional<int> cameras;
    bool stopped = false;
    bool verbose = false;
    std::vector<std::string> recordings;
};

void addOptions(CLI::App& app, Options& options)
{
    app.add_option("recording", options.recordings, "Recordings to open")->type_name("FILE");
    app.add_option("--plugin", options.plugin, "Driver plugin to load")->type_name("FILE");
    app.add_option("--cameras", options.cameras, "How many cameras to show at once")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()));
    app.add_flag("--stopped", options.stopped, "Do not start the streams");
    app.add_option("--folder", options.folder, "Where pictures and recordings go")
        ->type_name("DIR");
    app.add_option("--theme", options.theme,
                   "Colours: system, light or dark; remembered if chosen in the menu")
        ->check(CLI::IsMember({"system", "light", "dark"}));
    app.add_flag("-v,--verbose", options.verbose,
                 "Show everything that the driver prints and logs");
    app.add_option("--virtual", options.virtualModels,
                   "Run on a virtual camera of this model, or the default one; repeat for more")
        ->type_name("[MODEL]")
        ->expected(0, 1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

zrnview::Theme themeOf(const std::string& name)
{
    if (name.empty()) {
        return zrnview::rememberedTheme().value_or(zrnview::Theme::System);
    }
    return name == "light"  ? zrnview::Theme::Light
           : name == "dark" ? zrnview::Theme::Dark
                            : zrnview::Theme::System;
}

/// Who opens a recording wants no camera, which others may use.
int camerasWanted(const Options& options)
{
    const int cameras = static_cast<int>(options.virtualModels.size());
    return cameras > 0 || !options.recordings.empty() ? cameras : 1;
}

QString folderOf(const Options& options)
{
    if (!options.folder.empty()) {
        return QString::fromLocal8Bit(options.folder.c_str());
    }
    const QString remembered = zrnview::rememberedFolder();
    return remembered.isEmpty()
               ? QStandardPaths::writableLocation(QStandardPaths::PicturesLocation) +
                     QStringLiteral("/zrnview")
               : remembered;
}

/// Starts this program on a virtual camera. @return why it could not be started; empty if it was
QString startOnVirtualCamera(const std::string& plugin)
{
    QStringList arguments{QStringLiteral("--virtual")};
    if (!plugin.empty()) {
        arguments << QStringLiteral("--plugin") << QString::fromLocal8Bit(plugin.c_str());
    }
    if (zrnhost::virtualModels().isEmpty()) {
        return QCoreApplication::translate("main",
                                           "zrnsim was not found; install it, or put it on PATH");
    }
    const QString program = QCoreApplication::applicationFilePath();
    return QProcess::startDetached(program, arguments)
               ? QString()
               : QCoreApplication::translate("main", "%1 could not be started").arg(program);
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Shows and adjusts ZRN USB cameras.", "zrnview");
    app.set_version_flag("--version", "zrnview " ZRNVIEW_VERSION);
    Options options;
    addOptions(app, options);
    try {
        app.parse(argc, argv);
        if (!options.virtualModels.empty() && !zrnhost::onVirtualCameras()) {
            const QCoreApplication locator(argc, argv);
            zrnhost::runOnVirtualCameras(options.virtualModels, {argv, argv + argc});
        }
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : exitUsage;
    } catch (const zrnhost::VirtualRunError& error) {
        std::fprintf(stderr, "zrnview: %s\n%s\n", error.what(), qUtf8Printable(error.hint()));
        return error.isWrongModel() ? exitUsage : EXIT_FAILURE;
    }

    if (!options.verbose) {
        // The window takes what the driver logs as critical.
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
        zrnhost::silenceLibuvc();
    }
#if QT_VERSION_MAJOR < 6 // later ones scale of themselves
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#endif
    std::optional<zrnview::ScreenSearch> search(std::in_place);
    const QApplication application(argc, argv);
    search.reset();
    // QSettings keeps under these names what is remembered.
    QApplication::setOrganizationName(QStringLiteral("zrncamera"));
    QApplication::setApplicationName(QStringLiteral("zrnview"));
    zrnview::endOrderlyOnSignals();

    zrnview::Bench bench([&options] { return zrn::Driver::load(options.plugin); });
    zrnview::WindowOptions windowOptions;
    windowOptions.camerasToShow = options.cameras.value_or(camerasWanted(options));
    windowOptions.startStreams = !options.stopped;
    windowOptions.folder = folderOf(options);
    windowOptions.theme = themeOf(options.theme);
    windowOptions.printDriverLog = options.verbose;
    windowOptions.examine = [&options] { return zrn::examine(options.plugin); };
    if (!zrnhost::onVirtualCameras()) {
        windowOptions.startVirtual = [&options] { return startOnVirtualCamera(options.plugin); };
    }
    zrnview::applyTheme(windowOptions.theme);
    int exitCode = EXIT_SUCCESS;
    {
        zrnview::MainWindow window(bench, windowOptions);
        if (!window.restoreLayout()) {
            window.resize(window.fontMetrics().averageCharWidth() * 230,
                          window.fontMetrics().height() * 58);
        }
        window.fitInto(window.screen()->availableGeometry());
        for (const std::string& path : options.recordings) {
            window.openRecording(QString::fromLocal8Bit(path.c_str()));
        }
        window.show();
        bench.start();
        exitCode = QApplication::exec();
        window.rememberLayout();
    }
    if (!bench.shutDown()) {
        std::fprintf(stderr, "zrnview: a request to a camera does not end; leaving it behind\n");
        std::_Exit(EXIT_FAILURE);
    }
    return exitCode;
}
