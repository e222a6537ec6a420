#include "key_hash.h"

#include <QByteArray>
#include <QString>

std::uint64_t hash_string(const std::string& key)
{
    constexpr std::uint64_t offsetBasis = 0x811c9dc5;
    constexpr std::uint64_t prime = 0x01000193;

    std::uint64_t hash = offsetBasis;
    for (const char byte : key) {
        const std::int64_t extended = static_cast<signed char>(byte);
        hash = (hash * prime) ^ static_cast<std::uint64_t>(extended);
    }
    return hash;
}

std::uint64_t keyHash(const QString& key)
{
    const QByteArray bytes = key.toLatin1();
    return hash_string(std::string(bytes.constData()));
}
