#include "common/value_json.h"

#include <QJsonArray>
#include <QJsonObject>

namespace zrnhost
{

QJsonValue toJson(const zrn::Value& value)
{
    if (const auto* text = std::get_if<std::string>(&value)) {
        return QString::fromStdString(*text);
    }
    if (const auto* flag = std::get_if<bool>(&value)) {
        return *flag;
    }
    if (const auto* numbers = std::get_if<std::vector<std::int32_t>>(&value)) {
        QJsonArray array;
        for (const std::int32_t number : *numbers) {
            array.append(number);
        }
        return array;
    }
    if (const auto* fields = std::get_if<std::vector<zrn::Field>>(&value)) {
        QJsonObject object;
        for (const zrn::Field& field : *fields) {
            object[QString::fromStdString(field.name)] = toJson(field.value);
        }
        return object;
    }
    return value.index() == 0 ? QJsonValue() : QJsonValue(zrn::numberOf(value));
}

} // namespace zrnhost
