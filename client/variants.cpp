#include "client/variants.h"

namespace zrn
{

QVariant toVariant(const Value& value)
{
    return std::visit(
        [](const auto& held) -> QVariant {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::string>) {
                return QString::fromStdString(held);
            } else if constexpr (std::is_same_v<Held, std::vector<std::int32_t>>) {
                return QVariantList(held.begin(), held.end());
            } else if constexpr (std::is_same_v<Held, std::vector<Field>>) {
                QVariantMap map;
                for (const Field& field : held) {
                    map[QString::fromStdString(field.name)] = toVariant(field.value);
                }
                return map;
            } else if constexpr (std::is_arithmetic_v<Held>) {
                return QVariant::fromValue(held);
            } else {
                return {};
            }
        },
        value);
}

Value fromVariant(const QVariant& variant)
{
    if (variant.userType() == qMetaTypeId<QList<int>>()) {
        const auto numbers = variant.value<QList<int>>();
        return std::vector<std::int32_t>(numbers.begin(), numbers.end());
    }
    switch (variant.userType()) {
    case QMetaType::Int:
        return variant.toInt();
    case QMetaType::UInt:
        return variant.toUInt();
    case QMetaType::Bool:
        return variant.toBool();
    case QMetaType::Double:
        return variant.toDouble();
    case QMetaType::QString:
        return variant.toString().toStdString();
    case QMetaType::QVariantMap: {
        std::vector<Field> fields;
        const QVariantMap map = variant.toMap();
        for (auto entry = map.begin(); entry != map.end(); ++entry) {
            fields.push_back({entry.key().toStdString(), fromVariant(entry.value())});
        }
        return fields;
    }
    default:
        return {};
    }
}

} // namespace zrn
