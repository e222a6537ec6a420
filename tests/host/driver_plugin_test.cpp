#include "common/driver_plugin.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace zrnhost;

namespace
{

QString testPlugin(const char* name)
{
    return QStringLiteral(TEST_PLUGIN_DIR "/lib%1.so").arg(QLatin1String(name));
}

PluginFault loadFault(const QString& path)
{
    try {
        const DriverPlugin plugin(path);
        return PluginFault::None;
    } catch (const PluginError& error) {
        EXPECT_NE(QString::fromUtf8(error.what()), QString());
        return error.fault();
    }
}

} // namespace

TEST(PluginInspectionTest, ReadsTheMetadataOfADriver)
{
    const PluginInspection inspection = inspectPlugin(testPlugin("fake_driver"));
    EXPECT_EQ(inspection.fault, PluginFault::None) << inspection.message.toStdString();
    EXPECT_EQ(inspection.iid, QLatin1String(pluginIid));
    EXPECT_EQ(inspection.key, QLatin1String(pluginKey));
    EXPECT_EQ(inspection.className, QStringLiteral("FakeDriver"));
    EXPECT_EQ(inspection.qtVersion,
              QStringLiteral("%1.%2").arg(QT_VERSION_MAJOR).arg(QT_VERSION_MINOR));
}

TEST(PluginInspectionTest, SaysWhatItFoundWhereItDiffers)
{
    const PluginInspection iid = inspectPlugin(testPlugin("wrong_iid"));
    EXPECT_EQ(iid.fault, PluginFault::WrongIid);
    EXPECT_TRUE(iid.message.contains(QLatin1String("Example.Other.Factory.v1.0")));
    EXPECT_TRUE(iid.message.contains(QLatin1String(pluginIid)));

    const PluginInspection key = inspectPlugin(testPlugin("wrong_key"));
    EXPECT_EQ(key.fault, PluginFault::WrongKey);
    EXPECT_TRUE(key.message.contains(QLatin1String("\"othercamera\"")));
    EXPECT_TRUE(key.message.contains(QLatin1String("\"zrncamera\"")));
}

TEST(PluginInspectionTest, TellsMissingFilesFromOtherFiles)
{
    EXPECT_EQ(inspectPlugin(testPlugin("missing")).fault, PluginFault::NotFound);
    EXPECT_EQ(inspectPlugin(testPlugin("not_a_plugin")).fault, PluginFault::NotAPlugin);
    EXPECT_EQ(inspectPlugin(QStringLiteral("/dev/null")).fault, PluginFault::NotAPlugin);
    EXPECT_EQ(inspectPlugin(QStringLiteral("/")).fault, PluginFault::NotAPlugin);
}

TEST(PluginInspectionTest, NoticesAPluginOfANewerQt)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("libnewer.so"));
    QFile original(testPlugin("fake_driver"));
    ASSERT_TRUE(original.open(QIODevice::ReadOnly));
    QByteArray bytes = original.readAll();
    // The marker is followed by the format, then by major and minor of the Qt version.
    const int marker = bytes.indexOf("QTMETADATA !");
    ASSERT_GE(marker, 0);
    bytes[marker + 14] = static_cast<char>(QT_VERSION_MINOR + 1);
    QFile changed(path);
    ASSERT_TRUE(changed.open(QIODevice::WriteOnly));
    changed.write(bytes);
    changed.close();

    const PluginInspection inspection = inspectPlugin(path);
    EXPECT_EQ(inspection.fault, PluginFault::OtherQt) << inspection.message.toStdString();
    EXPECT_TRUE(inspection.message.contains(
        QStringLiteral("Qt %1.%2").arg(QT_VERSION_MAJOR).arg(QT_VERSION_MINOR + 1)));
}

TEST(DriverPluginTest, RefusesWhateverInspectionRefuses)
{
    EXPECT_EQ(loadFault(testPlugin("missing")), PluginFault::NotFound);
    EXPECT_EQ(loadFault(testPlugin("wrong_iid")), PluginFault::WrongIid);
    EXPECT_EQ(loadFault(testPlugin("wrong_key")), PluginFault::WrongKey);
    EXPECT_EQ(loadFault(testPlugin("not_a_plugin")), PluginFault::NotAPlugin);
}

TEST(DriverPluginTest, RefusesARootObjectThatIsNoFactory)
{
    EXPECT_EQ(loadFault(testPlugin("not_a_factory")), PluginFault::NotAFactory);
}

TEST(DriverPluginTest, ReportsAFileThatTheLinkerRefuses)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("libcut.so"));
    QFile original(testPlugin("fake_driver"));
    ASSERT_TRUE(original.open(QIODevice::ReadOnly));
    QByteArray bytes = original.readAll();
    bytes[18] = 0x28; // e_machine: ARM
    QFile changed(path);
    ASSERT_TRUE(changed.open(QIODevice::WriteOnly));
    changed.write(bytes);
    changed.close();
    const PluginFault fault = loadFault(path);
    EXPECT_TRUE(fault == PluginFault::LoadFailed || fault == PluginFault::NotAPlugin);
}

TEST(DriverPluginTest, LoadsADriverAgainAfterUnloading)
{
    for (int round = 0; round < 3; ++round) {
        DriverPlugin plugin(testPlugin("fake_driver"));
        EXPECT_EQ(plugin.factory().name(), QStringLiteral("FakeDriver"));
        EXPECT_EQ(plugin.factory().version(), QVersionNumber(9, 8, 7));
    }
}
