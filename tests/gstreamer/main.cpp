#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <gst/gst.h>
#include <string>

#ifdef ZRN_UNDER_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace
{

#ifdef ZRN_UNDER_ADDRESS_SANITIZER
/// GLib leaves the table of its interned strings behind each time that it needs a larger one. What
/// is allocated from its constructor on is overlooked, up to a table with room for all that the
/// tests intern.
using Initializer = void (*)();
[[gnu::section(".preinit_array"), gnu::used]] Initializer overlookAllocations = __lsan_disable;

void lookAtAllocations()
{
    constexpr GQuark stringsOfTable = 2048;
    GQuark string = 0;
    for (int i = 0; string % stringsOfTable != 1; ++i) {
        string = g_quark_from_string(("string " + std::to_string(i)).c_str());
    }
    __lsan_enable();
}
#else
void lookAtAllocations() {}
#endif

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    gst_init(&argc, &argv);
    lookAtAllocations();
    // In this process from the beginning: the registry may not know it.
    GError* error = nullptr;
    if (!gst_plugin_load_file(ELEMENT, &error)) {
        std::fprintf(stderr, "%s\n", error->message);
        return EXIT_FAILURE;
    }
    return RUN_ALL_TESTS();
}
