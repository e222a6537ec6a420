#include "checks/contract_checks.h"
#include "client/property_table.h"

#include <QPluginLoader>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ContractSpace::Account;
using ContractSpace::CheckRow;
using ContractSpace::CheckStatus;

namespace
{

std::vector<std::string> namesOf(const Account& account, CheckStatus status)
{
    std::vector<std::string> names;
    for (const CheckRow& row : account.rows()) {
        if (row.status == status) {
            names.push_back((row.group + QStringLiteral(": ") + row.name).toStdString());
        }
    }
    return names;
}

class ContractChecks : public testing::Test
{
protected:
    ContractChecks() { qputenv("ZRN_FAKE_CAMERAS", "3"); }
    ~ContractChecks() override
    {
        qunsetenv("ZRN_FAKE_CAMERAS");
        qunsetenv("ZRN_FAKE_FAULT");
    }

    QPluginLoader loader{QStringLiteral(TEST_PLUGIN_DIR "/libfake_driver.so")};
    IFactory* factory = qobject_cast<IFactory*>(loader.instance());
};

} // namespace

TEST_F(ContractChecks, NameEachPromiseThatADriverBreaks)
{
    ASSERT_NE(factory, nullptr);
    qputenv("ZRN_FAKE_FAULT", "no-period");
    const Account account = ContractSpace::checkContract(*factory);
    EXPECT_THAT(namesOf(account, CheckStatus::Failed),
                testing::ElementsAre("factory: refuse to delete null",
                                     "gain: refuse a value below the range",
                                     "gain: refuse a value above the range",
                                     "unknown keys: refuse a write without a value",
                                     "stream: time-out", "connection: refuse a second connection",
                                     "connection: refuse a second disconnection",
                                     "connection: refuse a command without a camera",
                                     "connection: refuse to connect before another enumeration",
                                     "connection: refuse an empty serial"));
    EXPECT_GT(account.count(CheckStatus::Passed), 80);
}

TEST(ContractChecksKeys, AreThoseOfTheClientLibrary)
{
    // The checks come with the interfaces, which know no library.
    EXPECT_EQ(ContractSpace::serialKey, QLatin1String(zrn::keys::serial));
    EXPECT_EQ(ContractSpace::grabTimeoutKey, QLatin1String(zrn::keys::maxGrabWaitTime));
    EXPECT_EQ(ContractSpace::valueEntry, QLatin1String(zrn::keys::value));
    for (const zrn::PropertyInfo& property : zrn::propertyTable) {
        EXPECT_NE(ContractSpace::unknownKey, QLatin1String(property.key));
    }
}

TEST_F(ContractChecks, LeaveNoCameraBehind)
{
    ASSERT_NE(factory, nullptr);
    ContractSpace::checkContract(*factory);
    int live = -1;
    ASSERT_TRUE(QMetaObject::invokeMethod(factory, "liveCameras", Q_RETURN_ARG(int, live)));
    EXPECT_EQ(live, 0);
}

TEST_F(ContractChecks, StopWhereACameraDoesNotStream)
{
    ASSERT_NE(factory, nullptr);
    qputenv("ZRN_FAKE_FAULT", "no-start");
    const Account account = ContractSpace::checkContract(*factory);
    EXPECT_THAT(namesOf(account, CheckStatus::Failed), testing::Contains("stream: start"));
    EXPECT_THAT(namesOf(account, CheckStatus::Passed),
                testing::Not(testing::Contains("stream: grab oldest")));
}

TEST_F(ContractChecks, EndWhereThereIsNoCamera)
{
    ASSERT_NE(factory, nullptr);
    qputenv("ZRN_FAKE_CAMERAS", "0");
    const Account account = ContractSpace::checkContract(*factory);
    EXPECT_THAT(namesOf(account, CheckStatus::Failed),
                testing::ElementsAre("factory: refuse to delete null", "connection: enumerate"));
}
