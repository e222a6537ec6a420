#include <QtGlobal>

#include <cstdio>

/// The driver's messages are formatted, so that formatting is fuzzed as well, but not printed.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    return std::freopen("/dev/null", "w", stdout) ? 0 : 1;
}
