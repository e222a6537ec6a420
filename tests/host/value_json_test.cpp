#include "common/value_json.h"

#include <QJsonArray>
#include <QJsonObject>
#include <gtest/gtest.h>

using zrnhost::toJson;

TEST(ValueJson, KeepsTypes)
{
    EXPECT_EQ(toJson(std::string("ZR18446744073709551615")),
              QJsonValue(QStringLiteral("ZR18446744073709551615")));
    EXPECT_EQ(toJson(4294967295U).toDouble(), 4294967295.0);
    EXPECT_TRUE(toJson(zrn::Value()).isNull());
    const std::vector<zrn::Field> record{{"WIDTHS", std::vector<std::int32_t>{640, 1280}},
                                         {"ONLINE", true}};
    const QJsonObject json = toJson(record).toObject();
    EXPECT_EQ(json[QLatin1String("WIDTHS")].toArray(), (QJsonArray{640, 1280}));
    EXPECT_EQ(json[QLatin1String("ONLINE")], QJsonValue(true));
}
