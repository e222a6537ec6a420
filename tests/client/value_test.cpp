#include "client/value.h"
#include "client/variants.h"

#include <gtest/gtest.h>

using namespace zrn;

namespace
{

TEST(ValueTest, ParsesTextsInTheTypeThatTheKeyWants)
{
    const PropertyInfo& hue = *findProperty(keys::hue);
    EXPECT_EQ(parseValue(hue, "-32768"), Value(-32768));
    EXPECT_EQ(parseValue(hue, "0x10"), Value(16));
    for (const char* text : {"32768", "12.0", "", "-", "0x", "1 ", "--1"}) {
        EXPECT_FALSE(parseValue(hue, text)) << text;
    }
    const PropertyInfo& wait = *findProperty(keys::maxGrabWaitTime);
    EXPECT_EQ(parseValue(wait, "4294967295"), Value(4294967295U));
    EXPECT_FALSE(parseValue(wait, "-1"));

    const PropertyInfo& flag = *findProperty(keys::enableCheckGain);
    EXPECT_EQ(parseValue(flag, "ON"), Value(true));
    EXPECT_EQ(parseValue(flag, "0"), Value(false));
    EXPECT_FALSE(parseValue(flag, "2"));
}

TEST(ValueTest, ComparesTypes)
{
    const PropertyInfo& gamma = *findProperty(keys::gamma);
    EXPECT_TRUE(hasTypeOf(gamma, 1));
    EXPECT_FALSE(hasTypeOf(gamma, 1U));
    EXPECT_FALSE(hasTypeOf(gamma, Value()));
    EXPECT_TRUE(hasTypeOf(*findProperty(keys::heartBeat), std::vector<Field>()));
}

TEST(ValueTest, ReadsAsText)
{
    EXPECT_EQ(toText(Value()), "");
    EXPECT_EQ(toText(-7), "-7");
    EXPECT_EQ(toText(4294967295U), "4294967295");
    EXPECT_EQ(toText(true), "true");
    EXPECT_EQ(toText(29.97), "29.97");
    const std::vector<Field> record{{"ONLINE", true},
                                    {"WIDTHS", std::vector<std::int32_t>{640, 1280}},
                                    {"NAME", std::string("a \"b\"")}};
    EXPECT_EQ(toText(record), R"({"NAME":"a \"b\"","ONLINE":true,"WIDTHS":[640,1280]})");
    EXPECT_EQ(toText(std::vector<std::int32_t>{640, 1280}), "[640,1280]");
    EXPECT_EQ(*findField(record, "ONLINE"), Value(true));
    EXPECT_EQ(findField(record, "online"), nullptr);
    EXPECT_EQ(findField(Value(1), "ONLINE"), nullptr);
}

TEST(ValueTest, SurvivesTheWayThroughVariants)
{
    for (const Value& value :
         {Value(-1), Value(4294967295U), Value(true), Value(0.5), Value(std::string("ZR1"))}) {
        EXPECT_EQ(fromVariant(toVariant(value)), value) << toText(value);
    }
    const QVariantMap map{{QStringLiteral("WIDTHS"), QVariant::fromValue(QList<int>{640, 1280})},
                          {QStringLiteral("ONLINE"), true}};
    EXPECT_EQ(fromVariant(map),
              Value(std::vector<Field>{{"ONLINE", true},
                                       {"WIDTHS", std::vector<std::int32_t>{640, 1280}}}));
    EXPECT_EQ(fromVariant(QVariant(QByteArray("x"))), Value());
}

} // namespace
