// The guards' way into the linkage table of a libuvc, and out of it again.

#include "guarded_module.h"
#include "stand_in_usb.h"
#include "stand_in_uvc.h"
#include "usb_guards/loaded_library.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <dlfcn.h>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using usbguards::LoadedLibrary;

namespace
{

struct Close {
    void operator()(void* library) const { dlclose(library); }
};
using Library = std::unique_ptr<void, Close>;

Library load(const std::string& name, int flags = RTLD_LAZY)
{
    Library library(dlopen((MODULE_FOLDER + name).c_str(), flags));
    EXPECT_TRUE(library) << dlerror();
    return library;
}

bool isLoaded(const std::string& name)
{
    return Library(dlopen((MODULE_FOLDER + name).c_str(), RTLD_LAZY | RTLD_NOLOAD)) != nullptr;
}

template <typename Function>
Function* find(const Library& library, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(library.get(), name));
}

/// A library with guards, as a host loads the driver.
struct Guarded {
    explicit Guarded(const std::string& name)
        : library(load(name))
        , module(static_cast<const GuardedModule*>(dlsym(library.get(), "guardedModule")))
    {
    }
    void open() { module->open(&context, &handle); }
    void close() { module->close(context, handle); }
    std::string status() const { return module->status(); }

    Library library;
    const GuardedModule* module;
    uvc_context_t* context = nullptr;
    uvc_device_handle_t* handle = nullptr;
};

/// How the process may write its memory, as far as it belongs to a file.
std::string protection(const std::string& file)
{
    std::ifstream maps("/proc/self/maps");
    std::ostringstream found;
    for (std::string line; std::getline(maps, line);) {
        if (line.ends_with(file)) {
            found << line.substr(0, line.find(' ') + 5) << '\n';
        }
    }
    return found.str();
}

/// A program that uses a libuvc in which guards come and go.
class Installation : public testing::TestWithParam<const char*>
{
protected:
    Installation()
        : uvc(load(uvcName()))
        , usb(load("libstand_in_usb.so"))
        , table(LoadedLibrary::around(dlsym(uvc.get(), "uvc_open")))
        , fresh(entries())
    {
        find<decltype(uvc_init)>(uvc, "uvc_init")(&context, nullptr);
        find<decltype(uvc_open)>(uvc, "uvc_open")(nullptr, &handle);
        before = entries();
        pages = protection(uvcName());
        calls().clear();
    }
    ~Installation() override
    {
        find<decltype(uvc_close)>(uvc, "uvc_close")(handle);
        find<decltype(uvc_exit)>(uvc, "uvc_exit")(context);
    }

    static std::string uvcName() { return std::string("libstand_in_uvc_") + GetParam() + ".so"; }
    static std::string guardsName() { return std::string("libguards_on_") + GetParam() + ".so"; }

    std::map<std::string, void*> entries() const
    {
        std::map<std::string, void*> result;
        for (const LoadedLibrary::Link& link : table.links("libusb_")) {
            result[link.function] = LoadedLibrary::read(link.slot);
        }
        return result;
    }
    std::vector<StandInUsb::Call>& calls() const
    {
        return find<StandInUsb*()>(usb, "standInUsb")()->calls;
    }
    void change(void (*what)(StandInUsb&, void*)) const
    {
        find<decltype(withStandInUsb)>(usb, "withStandInUsb")(what, nullptr);
    }
    int control(uvc_device_handle_t* whose) const
    {
        return find<decltype(standInControl)>(uvc, "standInControl")(whose);
    }
    int cancelUnsubmitted(uvc_device_handle_t* whose) const
    {
        return find<decltype(standInTransfer)>(uvc, "standInTransfer")(whose, false);
    }
    void expectForeignUntouched() const
    {
        calls().clear();
        EXPECT_EQ(control(handle), 2);
        EXPECT_EQ(calls().back().timeout, 0U);
        EXPECT_TRUE(calls().back().caller.ends_with(uvcName())) << calls().back().caller;
        EXPECT_EQ(cancelUnsubmitted(handle), LIBUSB_SUCCESS);
        EXPECT_EQ(calls().size(), 4U);
    }
    void expectGuarded(uvc_device_handle_t* whose) const
    {
        EXPECT_EQ(control(whose), 2);
        EXPECT_EQ(calls().back().timeout, 2000U);
        EXPECT_EQ(cancelUnsubmitted(whose), LIBUSB_ERROR_OTHER);
    }
    void expectRestored() const
    {
        EXPECT_EQ(pages, protection(uvcName()));
        for (const auto& [function, value] : entries()) {
            EXPECT_EQ(value, before.at(function)) << function;
        }
    }

    Library uvc;
    Library usb;
    LoadedLibrary table;
    std::map<std::string, void*> fresh;
    uvc_context_t* context = nullptr;
    uvc_device_handle_t* handle = nullptr;
    std::map<std::string, void*> before;
    std::string pages;
};

TEST_P(Installation, LoadingChangesNothing)
{
    const Guarded driver(guardsName());
    EXPECT_EQ(driver.status(), "not needed yet");
    expectRestored();
}

TEST_P(Installation, GuardsTheDriversCallsAndNoOthers)
{
    Guarded driver(guardsName());
    driver.open();
    EXPECT_EQ(driver.status(), "in effect");
    EXPECT_EQ(protection(uvcName()), pages) << "the table's protection";
    expectGuarded(driver.handle);
    expectForeignUntouched();
    driver.close();
    expectForeignUntouched();
}

TEST_P(Installation, EndsWithTheLibrary)
{
    for (int i = 0; i < 3; ++i) {
        {
            Guarded driver(guardsName());
            driver.open();
            expectGuarded(driver.handle);
            expectForeignUntouched();
            before = i == 0 ? before : entries();
            driver.close();
        }
        EXPECT_FALSE(isLoaded(guardsName()));
        expectForeignUntouched();
    }
}

TEST_P(Installation, LeavesTheTableAsItWas)
{
    {
        Guarded driver(guardsName());
        driver.open();
        driver.close();
        EXPECT_EQ(driver.status(), "in effect");
    }
    expectRestored();
}

TEST_P(Installation, NoForeignThreadIsCaughtInAGuard)
{
    std::thread events;
    {
        Guarded driver(guardsName());
        driver.open();
        change([](StandInUsb& stand, void*) { stand.holdsEvents = true; });
        events =
            std::thread([this] { find<decltype(standInEvents)>(uvc, "standInEvents")(context); });
        bool isWaiting = false;
        while (!isWaiting) {
            std::this_thread::yield();
            find<decltype(withStandInUsb)>(usb, "withStandInUsb")(
                [](StandInUsb& stand, void* result) {
                    *static_cast<bool*>(result) = stand.isHandlingEvents;
                },
                &isWaiting);
        }
        driver.close();
    }
    EXPECT_FALSE(isLoaded(guardsName()));
    change([](StandInUsb& stand, void*) { stand.holdsEvents = false; });
    events.join();
}

/// What another thread's first call of a function does whose entry was not looked up yet.
TEST_P(Installation, RepairsWhatTheDynamicLinkerHasOverwritten)
{
    Guarded driver(guardsName());
    driver.open();
    driver.close();
    const Library stand = load("libstand_in_usb.so");
    std::vector<LoadedLibrary::Change> late;
    for (const LoadedLibrary::Link& link : table.links("libusb_control_transfer")) {
        late.push_back(
            {link.slot, LoadedLibrary::read(link.slot), dlsym(stand.get(), link.function)});
    }
    ASSERT_FALSE(late.empty());
    ASSERT_EQ(table.change(late), 0);
    EXPECT_EQ(driver.status(), "another library has changed the linkage table of libuvc");
    driver.open();
    EXPECT_EQ(driver.status(), "in effect");
    expectGuarded(driver.handle);
    driver.close();
}

TEST_P(Installation, AForkedChildUnloadsWhateverTheParentsThreadsDo)
{
    constexpr int children = 100;
    Guarded driver(guardsName());
    driver.open();
    driver.close();
    std::atomic<bool> end = false;
    std::thread looking([&] {
        while (!end) {
            driver.status();
        }
    });
    for (int i = 0; i < children && !HasFailure(); ++i) {
        const pid_t child = fork();
        if (child == 0) {
            driver.library.reset();
            _exit(0);
        }
        const auto late = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (waitpid(child, nullptr, WNOHANG) == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            if (std::chrono::steady_clock::now() > late) {
                kill(child, SIGKILL);
                waitpid(child, nullptr, 0);
                ADD_FAILURE() << "child " << i << " does not end";
                break;
            }
        }
    }
    end = true;
    looking.join();
}

INSTANTIATE_TEST_SUITE_P(Linkage, Installation, testing::Values("lazy", "half", "now"),
                         [](const auto& test) { return std::string(test.param); });

/// Two copies of the driver in one process.
using TwoCopies = Installation;

TEST_P(TwoCopies, GuardEachTheirOwn)
{
    Guarded first(guardsName());
    Guarded second(guardsName() + ".copy");
    first.open();
    second.open();
    for (const Guarded* driver : {&first, &second}) {
        EXPECT_EQ(driver->status(), "in effect");
        expectGuarded(driver->handle);
    }
    expectForeignUntouched();
    first.close();
    second.close();
    EXPECT_EQ(first.status(), "in effect");
}

TEST_P(TwoCopies, MayBeUnloadedInTheOrderOfLoading)
{
    auto first = std::make_unique<Guarded>(guardsName());
    auto second = std::make_unique<Guarded>(guardsName() + ".copy");
    first->open();
    second->open();
    first->close();
    first.reset();
    EXPECT_TRUE(isLoaded(guardsName())) << "the second one's guards call the first one's";
    expectGuarded(second->handle);
    expectForeignUntouched();
    second->close();
    second.reset();
    EXPECT_FALSE(isLoaded(guardsName()));
    EXPECT_FALSE(isLoaded(guardsName() + ".copy"));
    expectRestored();
}

TEST_P(TwoCopies, MayBeUnloadedInTheOtherOrder)
{
    auto first = std::make_unique<Guarded>(guardsName());
    auto second = std::make_unique<Guarded>(guardsName() + ".copy");
    first->open();
    second->open();
    second->close();
    second.reset();
    EXPECT_FALSE(isLoaded(guardsName() + ".copy"));
    EXPECT_EQ(first->status(), "in effect");
    expectGuarded(first->handle);
    first->close();
    first.reset();
    expectRestored();
}

INSTANTIATE_TEST_SUITE_P(Linkage, TwoCopies, testing::Values("lazy", "now"),
                         [](const auto& test) { return std::string(test.param); });

/// The last ones, as their guards stay for good.
using KeptInstallation = Installation;

TEST_P(KeptInstallation, StaysWhileTheDriverHasSomethingOpen)
{
    uvc_context_t* openContext = nullptr;
    uvc_device_handle_t* openHandle = nullptr;
    {
        Guarded driver(guardsName());
        driver.module->open(&openContext, &openHandle);
        driver.module->keepLoaded();
    }
    EXPECT_TRUE(isLoaded(guardsName()));
    expectForeignUntouched();
    Guarded again(guardsName());
    EXPECT_EQ(again.status(), "in effect");
    again.module->close(openContext, openHandle);
}

INSTANTIATE_TEST_SUITE_P(Linkage, KeptInstallation, testing::Values("lazy", "half", "now"),
                         [](const auto& test) { return std::string(test.param); });

TEST(InstallationOnNothing, IsNotNeeded)
{
    Guarded driver("libguards_on_alone.so");
    driver.open();
    EXPECT_EQ(driver.status(), "not needed");
    driver.close();
}

} // namespace
