#include "common/property_keys.h"
#include "common/property_table.h"

#include <QJsonArray>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace zrnhost;

TEST(PropertyTable, HoldsEachKeyOnce)
{
    QStringList names;
    int writable = 0;
    for (const PropertyInfo& property : properties()) {
        names += QString::fromLatin1(property.key);
        writable += property.writable ? 1 : 0;
        EXPECT_EQ(findProperty(names.last()), &property);
        EXPECT_LE(property.minimum, property.maximum) << property.key;
    }
    EXPECT_EQ(names.size(), 18);
    EXPECT_EQ(writable, 13);
    EXPECT_EQ(names.removeDuplicates(), 0);
    EXPECT_EQ(findProperty(QStringLiteral("gamma")), nullptr);
}

TEST(PropertyTable, ParsesValuesInTheTypeThatTheKeyWants)
{
    const PropertyInfo& hue = *findProperty(QString::fromLatin1(keys::hue));
    EXPECT_EQ(parseValue(hue, QStringLiteral("-32768")), QVariant(-32768));
    EXPECT_EQ(parseValue(hue, QStringLiteral("0x10")), QVariant(16));
    EXPECT_FALSE(parseValue(hue, QStringLiteral("32768")));
    EXPECT_FALSE(parseValue(hue, QStringLiteral("12.0")));
    EXPECT_FALSE(parseValue(hue, QString()));

    const PropertyInfo& wait = *findProperty(QString::fromLatin1(keys::maxGrabWaitTime));
    const auto parsed = parseValue(wait, QStringLiteral("4294967295"));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->userType(), int{QMetaType::UInt});
    EXPECT_FALSE(parseValue(wait, QStringLiteral("-1")));

    const PropertyInfo& flag = *findProperty(QString::fromLatin1(keys::enableCheckGain));
    EXPECT_EQ(parseValue(flag, QStringLiteral("ON")), QVariant(true));
    EXPECT_EQ(parseValue(flag, QStringLiteral("0")), QVariant(false));
    EXPECT_FALSE(parseValue(flag, QStringLiteral("2")));
}

TEST(PropertyTable, TypesAreCompared)
{
    const PropertyInfo& gamma = *findProperty(QString::fromLatin1(keys::gamma));
    EXPECT_TRUE(hasTypeOf(gamma, 1));
    EXPECT_FALSE(hasTypeOf(gamma, 1U));
    EXPECT_FALSE(hasTypeOf(gamma, QVariant()));
    EXPECT_TRUE(hasTypeOf(*findProperty(QString::fromLatin1(keys::heartBeat)), QVariantMap()));
}

TEST(PropertyTable, ValuesBecomeJson)
{
    EXPECT_EQ(toJson(QStringLiteral("ZR18446744073709551615")),
              QJsonValue(QStringLiteral("ZR18446744073709551615")));
    EXPECT_EQ(toJson(4294967295U).toDouble(), 4294967295.0);
    const QVariantMap map{{QStringLiteral("WIDTHS"), QVariant::fromValue(QList<int>{640, 1280})},
                          {QStringLiteral("ONLINE"), true}};
    const QJsonObject json = toJson(map).toObject();
    EXPECT_EQ(json[QLatin1String("WIDTHS")].toArray(), (QJsonArray{640, 1280}));
    EXPECT_EQ(json[QLatin1String("ONLINE")], QJsonValue(true));
}
