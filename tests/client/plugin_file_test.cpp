#include "client/error.h"
#include "client/plugin_file.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

using namespace zrn;

namespace
{

class PluginFile : public testing::Test
{
protected:
    void SetUp() override
    {
        ::unsetenv(pluginVariable);
        std::filesystem::create_directories(folder / "lib");
    }
    void TearDown() override
    {
        ::unsetenv(pluginVariable);
        std::filesystem::remove_all(folder);
    }

    PluginCandidate choose(const std::string& chosen)
    {
        return choosePlugin(pluginCandidates(chosen, folder / "bin"));
    }

    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("plugin_file_" + std::to_string(::getpid()));
};

TEST_F(PluginFile, OptionBeatsEnvironmentBeatsBuildTree)
{
    const std::filesystem::path library = folder / "lib/libzrncamera.so";
    std::ofstream(library).put(' ');

    EXPECT_EQ(choose("").path, library);
    ::setenv(pluginVariable, "/elsewhere/driver.so", 1);
    EXPECT_EQ(choose("").path, "/elsewhere/driver.so");
    EXPECT_EQ(choose("/third/driver.so").path, "/third/driver.so");
}

TEST_F(PluginFile, TheInstallationBeatsOtherFolders)
{
    std::vector<std::string> origins;
    for (const PluginCandidate& candidate : pluginCandidates("", folder / "bin")) {
        origins.push_back(candidate.origin);
    }
    ASSERT_GT(origins.size(), 3U);
    EXPECT_EQ(origins[0], "build tree");
    EXPECT_EQ(origins[1], "installation");
    EXPECT_EQ(origins[2], "configured installation");
    EXPECT_EQ(origins[3], "Qt plugin folder");
}

/// As the plugin of a program that belongs to another installation.
TEST_F(PluginFile, TheInstallationOfTheLibraryBeatsThatOfTheProgram)
{
    std::vector<PluginCandidate> candidates =
        pluginCandidates("", "/usr/bin", folder / "lib/machine/gstreamer-1.0");
    ASSERT_GT(candidates.size(), 3U);
    EXPECT_EQ(candidates[0].origin, "build tree of the library");
    EXPECT_EQ(candidates[0].path, folder / "lib/machine/libzrncamera.so");
    EXPECT_EQ(candidates[1].origin, "installation of the library");
    EXPECT_EQ(candidates[2].origin, "build tree");

    candidates = pluginCandidates("", "/usr/bin", folder / "plugins");
    EXPECT_EQ(candidates[1].origin, "build tree") << "no folder of libraries above";
}

TEST_F(PluginFile, ANamedFileIsTakenEvenIfItIsMissing)
{
    const PluginCandidate candidate = choose("missing.so");
    EXPECT_TRUE(candidate.required);
    EXPECT_EQ(candidate.path, std::filesystem::current_path() / "missing.so");
}

TEST_F(PluginFile, NothingFoundIsAnEmptyPath)
{
    EXPECT_EQ(choosePlugin({{"build tree", folder / "x", false}}).path, "");
}

TEST_F(PluginFile, EveryFaultHasANameAndARemedy)
{
    std::vector<std::string> names;
    for (const PluginFault fault :
         {PluginFault::NotFound, PluginFault::NotAPlugin, PluginFault::OtherQt,
          PluginFault::WrongIid, PluginFault::WrongKey, PluginFault::LoadFailed,
          PluginFault::NotAFactory}) {
        PluginInspection inspection;
        inspection.fault = fault;
        EXPECT_FALSE(inspection.remedy().empty()) << nameOf(fault);
        EXPECT_THAT(inspection.remedy(), testing::Not(testing::HasSubstr("--")))
            << "not every program has this option";
        EXPECT_THAT(names, testing::Not(testing::Contains(nameOf(fault))));
        names.emplace_back(nameOf(fault));
    }
}

} // namespace
