#include "common/property_values.h"
#include "document_table.h"
#include "key_hash.h"

#include <QJsonArray>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace zrnhost;

namespace
{

/// The type of a property's variant, as C++ spells it.
const char* variantType(PropertyType type)
{
    switch (type) {
    case PropertyType::Int:
        return "int";
    case PropertyType::UInt:
        return "unsigned int";
    case PropertyType::Bool:
        return "bool";
    case PropertyType::Double:
        return "double";
    case PropertyType::Text:
        return "QString";
    case PropertyType::Record:
        break;
    }
    return "QVariantMap";
}

} // namespace

TEST(PropertyTable, HoldsEachKeyOnce)
{
    QStringList names;
    int writable = 0;
    for (const PropertyInfo& property : propertyTable) {
        names += QString::fromLatin1(property.key);
        writable += property.writable ? 1 : 0;
        EXPECT_EQ(findProperty(property.key), &property);
        EXPECT_LE(property.minimum, property.maximum) << property.key;
    }
    EXPECT_EQ(names.size(), 18);
    EXPECT_EQ(writable, 13);
    EXPECT_EQ(names.removeDuplicates(), 0);
    EXPECT_EQ(findProperty("gamma"), nullptr);
}

TEST(PropertyTable, DocumentHasTheTable)
{
    const auto code = [](const char* word) {
        return QStringLiteral("`%1`").arg(QLatin1String(word));
    };
    QList<QStringList> rows;
    for (const PropertyInfo& property : propertyTable) {
        const quint64 hash = hash_string(property.key);
        const char* written = !property.writable                    ? "-"
                              : property.type == PropertyType::Bool ? "flag"
                                                                    : "integer";
        rows += {code(property.key),
                 QStringLiteral("0x%1").arg(hash, 16, 16, QLatin1Char('0')),
                 code(variantType(property.type)),
                 QString::fromLatin1(written),
                 rangeText(property),
                 QString::fromLatin1(property.unit),
                 *property.carrier ? QStringLiteral("UVC ") + QLatin1String(property.carrier)
                                   : QStringLiteral("the driver"),
                 QString::fromLatin1(property.tip)};
    }
    const QStringList head{QStringLiteral("key"),        QStringLiteral("hash"),
                           QStringLiteral("read as"),    QStringLiteral("written as"),
                           QStringLiteral("range"),      QStringLiteral("unit"),
                           QStringLiteral("carried by"), QStringLiteral("what it is")};
    const QString difference = differenceInDocument(QStringLiteral("properties.md"), head, rows);
    EXPECT_TRUE(difference.isEmpty()) << difference.toStdString();
}

TEST(PropertyTable, ParsesValuesInTheTypeThatTheKeyWants)
{
    const PropertyInfo& hue = *findProperty(keys::hue);
    EXPECT_EQ(parseValue(hue, QStringLiteral("-32768")), QVariant(-32768));
    EXPECT_EQ(parseValue(hue, QStringLiteral("0x10")), QVariant(16));
    EXPECT_FALSE(parseValue(hue, QStringLiteral("32768")));
    EXPECT_FALSE(parseValue(hue, QStringLiteral("12.0")));
    EXPECT_FALSE(parseValue(hue, QString()));

    const PropertyInfo& wait = *findProperty(keys::maxGrabWaitTime);
    const auto parsed = parseValue(wait, QStringLiteral("4294967295"));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->userType(), int{QMetaType::UInt});
    EXPECT_FALSE(parseValue(wait, QStringLiteral("-1")));

    const PropertyInfo& flag = *findProperty(keys::enableCheckGain);
    EXPECT_EQ(parseValue(flag, QStringLiteral("ON")), QVariant(true));
    EXPECT_EQ(parseValue(flag, QStringLiteral("0")), QVariant(false));
    EXPECT_FALSE(parseValue(flag, QStringLiteral("2")));
}

TEST(PropertyTable, TypesAreCompared)
{
    const PropertyInfo& gamma = *findProperty(keys::gamma);
    EXPECT_TRUE(hasTypeOf(gamma, 1));
    EXPECT_FALSE(hasTypeOf(gamma, 1U));
    EXPECT_FALSE(hasTypeOf(gamma, QVariant()));
    EXPECT_TRUE(hasTypeOf(*findProperty(keys::heartBeat), QVariantMap()));
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
