#include "client/value.h"
#include "document_table.h"
#include "key_hash.h"

#include <gtest/gtest.h>

using namespace zrn;

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
                 QString::fromStdString(rangeText(property)),
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

TEST(PropertyTable, DocumentHasTheSharedCarriers)
{
    const auto code = [](const char* word) {
        return QStringLiteral("`%1`").arg(QLatin1String(word));
    };
    QList<QStringList> rows;
    for (const char* gain : {keys::rGain, keys::grGain, keys::gbGain, keys::bGain}) {
        const std::string_view carrier = findProperty(gain)->carrier;
        QString direct = QStringLiteral("-");
        for (const PropertyInfo& property : propertyTable) {
            if (property.carrier == carrier && property.key != std::string_view(gain)) {
                direct = code(property.key);
            }
        }
        rows += {QString::fromLatin1(findProperty(gain)->carrier), direct, code(gain)};
    }
    const QStringList head{QStringLiteral("UVC control"), QStringLiteral("direct setting"),
                           QStringLiteral("colour gain")};
    const QString difference = differenceInDocument(QStringLiteral("properties.md"), head, rows);
    EXPECT_TRUE(difference.isEmpty()) << difference.toStdString();
}
