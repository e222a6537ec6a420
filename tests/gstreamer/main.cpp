#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <gst/gst.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    gst_init(&argc, &argv);
    // In this process from the beginning: the registry may not know it.
    GError* error = nullptr;
    if (!gst_plugin_load_file(ELEMENT, &error)) {
        std::fprintf(stderr, "%s\n", error->message);
        return EXIT_FAILURE;
    }
    return RUN_ALL_TESTS();
}
