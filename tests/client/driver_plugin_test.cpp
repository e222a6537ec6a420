#include "client/driver_plugin.h"
#include "client/error.h"

#include <QFile>
#include <QTemporaryDir>
#include <gmock/gmock.h>

using namespace zrn;

namespace
{

std::string testPlugin(const char* name)
{
    return std::string(TEST_PLUGIN_DIR "/lib") + name + ".so";
}

/// The name of the fault for which a file cannot be loaded.
std::string loadFault(const std::string& path)
{
    try {
        const DriverPlugin plugin(path);
        return nameOf(PluginFault::None);
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), Error::Kind::Plugin);
        EXPECT_STRNE(error.what(), "");
        EXPECT_FALSE(error.remedy().empty());
        return error.name();
    }
}

} // namespace

TEST(PluginInspectionTest, ReadsTheMetadataOfADriver)
{
    const PluginInspection inspection = inspectPlugin(testPlugin("fake_driver"));
    EXPECT_EQ(inspection.fault, PluginFault::None) << inspection.message;
    EXPECT_EQ(inspection.iid, pluginIid);
    EXPECT_EQ(inspection.key, pluginKey);
    EXPECT_EQ(inspection.className, "FakeDriver");
    EXPECT_EQ(inspection.qtVersion,
              std::to_string(QT_VERSION_MAJOR) + '.' + std::to_string(QT_VERSION_MINOR));
}

TEST(PluginInspectionTest, SaysWhatItFoundWhereItDiffers)
{
    const PluginInspection iid = inspectPlugin(testPlugin("wrong_iid"));
    EXPECT_EQ(iid.fault, PluginFault::WrongIid);
    EXPECT_THAT(iid.message, testing::HasSubstr("Example.Other.Factory.v1.0"));
    EXPECT_THAT(iid.message, testing::HasSubstr(pluginIid));

    const PluginInspection key = inspectPlugin(testPlugin("wrong_key"));
    EXPECT_EQ(key.fault, PluginFault::WrongKey);
    EXPECT_THAT(key.message, testing::HasSubstr("\"othercamera\""));
    EXPECT_THAT(key.message, testing::HasSubstr("\"zrncamera\""));
}

TEST(PluginInspectionTest, TellsMissingFilesFromOtherFiles)
{
    EXPECT_EQ(inspectPlugin(testPlugin("missing")).fault, PluginFault::NotFound);
    EXPECT_EQ(inspectPlugin(testPlugin("not_a_plugin")).fault, PluginFault::NotAPlugin);
    EXPECT_EQ(inspectPlugin("/dev/null").fault, PluginFault::NotAPlugin);
    EXPECT_EQ(inspectPlugin("/").fault, PluginFault::NotAPlugin);
}

TEST(PluginInspectionTest, NoticesAPluginOfAnotherQt)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("libother.so"));
    QFile original(QString::fromStdString(testPlugin("fake_driver")));
    ASSERT_TRUE(original.open(QIODevice::ReadOnly));
    QByteArray bytes = original.readAll();
    // The marker, a string of twelve bytes in the file, is followed by the format, then by major
    // and minor of the Qt version.
    const auto marker = bytes.indexOf(QT_VERSION_MAJOR < 6 ? QByteArray("QTMETADATA !", 12)
                                                           : QByteArray("qt-project!\0\1\6", 14));
    ASSERT_GE(marker, 0);
    struct Version {
        int major;
        int minor;
    };
    for (const Version other : {Version{QT_VERSION_MAJOR, QT_VERSION_MINOR + 1},
                                Version{QT_VERSION_MAJOR - 1, QT_VERSION_MINOR}}) {
        bytes[marker + 13] = static_cast<char>(other.major);
        bytes[marker + 14] = static_cast<char>(other.minor);
        QFile changed(path);
        ASSERT_TRUE(changed.open(QIODevice::WriteOnly));
        changed.write(bytes);
        changed.close();

        const PluginInspection inspection = inspectPlugin(path.toStdString());
        EXPECT_EQ(inspection.fault, PluginFault::OtherQt) << inspection.message;
        EXPECT_THAT(inspection.message,
                    testing::HasSubstr("Qt " + std::to_string(other.major) + '.' +
                                       std::to_string(other.minor) + ","));
    }
}

TEST(DriverPluginTest, RefusesWhateverInspectionRefuses)
{
    EXPECT_EQ(loadFault(testPlugin("missing")), "NotFound");
    EXPECT_EQ(loadFault(testPlugin("wrong_iid")), "WrongIid");
    EXPECT_EQ(loadFault(testPlugin("wrong_key")), "WrongKey");
    EXPECT_EQ(loadFault(testPlugin("not_a_plugin")), "NotAPlugin");
}

TEST(DriverPluginTest, RefusesARootObjectThatIsNoFactory)
{
    EXPECT_EQ(loadFault(testPlugin("not_a_factory")), "NotAFactory");
}

TEST(DriverPluginTest, ReportsAFileThatTheLinkerRefuses)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("libcut.so"));
    QFile original(QString::fromStdString(testPlugin("fake_driver")));
    ASSERT_TRUE(original.open(QIODevice::ReadOnly));
    QByteArray bytes = original.readAll();
    bytes[18] = 0x28; // e_machine: ARM
    QFile changed(path);
    ASSERT_TRUE(changed.open(QIODevice::WriteOnly));
    changed.write(bytes);
    changed.close();
    const std::string fault = loadFault(path.toStdString());
    EXPECT_TRUE(fault == "LoadFailed" || fault == "NotAPlugin") << fault;
}

TEST(DriverPluginTest, LoadsADriverAgainAfterUnloading)
{
    for (int round = 0; round < 3; ++round) {
        DriverPlugin plugin(testPlugin("fake_driver"));
        EXPECT_EQ(plugin.factory().name(), QStringLiteral("FakeDriver"));
        EXPECT_EQ(plugin.factory().version(), QVersionNumber(9, 8, 7));
    }
}
