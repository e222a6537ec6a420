#include "common/plugin_locator.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace zrnhost;

namespace
{

class PluginLocator : public testing::Test
{
protected:
    void SetUp() override { qunsetenv(pluginVariable); }
    void TearDown() override { qunsetenv(pluginVariable); }

    PluginCandidate choose(const QString& chosen)
    {
        return choosePlugin(pluginCandidates(chosen, folder.filePath(QStringLiteral("bin"))));
    }

    QTemporaryDir folder;
};

} // namespace

TEST_F(PluginLocator, OptionBeatsEnvironmentBeatsBuildTree)
{
    QDir(folder.path()).mkpath(QStringLiteral("lib"));
    QFile library(folder.filePath(QStringLiteral("lib/libzrncamera.so")));
    ASSERT_TRUE(library.open(QIODevice::WriteOnly));

    EXPECT_EQ(choose(QString()).path, library.fileName());
    qputenv(pluginVariable, "/elsewhere/driver.so");
    EXPECT_EQ(choose(QString()).path, QStringLiteral("/elsewhere/driver.so"));
    EXPECT_EQ(choose(QStringLiteral("/third/driver.so")).path, QStringLiteral("/third/driver.so"));
}

TEST_F(PluginLocator, ANamedFileIsTakenEvenIfItIsMissing)
{
    const PluginCandidate candidate = choose(QStringLiteral("missing.so"));
    EXPECT_TRUE(candidate.required);
    EXPECT_EQ(candidate.path, QDir::current().absoluteFilePath(QStringLiteral("missing.so")));
}

TEST_F(PluginLocator, NothingFoundIsAnEmptyPath)
{
    EXPECT_EQ(
        choosePlugin({{QStringLiteral("build tree"), folder.filePath(QStringLiteral("x")), false}})
            .path,
        QString());
}
