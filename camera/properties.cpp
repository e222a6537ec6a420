#include "atomic_field.h"
#include "key_hash.h"
#include "sensor_types.h"
#include "zrn_camera.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <string_view>

namespace
{

const QString valueEntry = QStringLiteral("value");

} // namespace

/// One row for each key and direction. Hosts choose the key texts; the driver knows their hashes,
/// and the labels are for the reader alone.
struct CZRNCamera::Properties {
    using IntegerIO = bool (CZRNCamera::*)(bool read, int& value);

    struct ReadRow {
        std::uint64_t hash;
        const char* label;
        bool (*read)(CZRNCamera& camera, QVariant& value);
    };
    struct WriteRow {
        std::uint64_t hash;
        const char* label;
        bool (*accepts)(const QVariant& value);
        bool (*write)(CZRNCamera& camera, const QVariant& value);
    };

    static bool isInteger(const QVariant& value)
    {
        return value.userType() == QMetaType::Int || value.userType() == QMetaType::UInt;
    }
    static bool isFlag(const QVariant& value)
    {
        return value.userType() == QMetaType::Bool || isInteger(value);
    }

    /// Reads a field, reported as type Out.
    template <auto field, typename Out>
    static bool readField(CZRNCamera& camera, QVariant& value)
    {
        value = QVariant::fromValue(static_cast<Out>(shared(camera.*field).load()));
        return true;
    }
    /// Writes a field from the variant's own accessor.
    template <auto field, auto convert>
    static bool writeField(CZRNCamera& camera, const QVariant& value)
    {
        using Field = std::remove_reference_t<decltype(camera.*field)>;
        shared(camera.*field).store(static_cast<Field>((value.*convert)(nullptr)));
        return true;
    }
    template <auto field>
    static bool writeFlag(CZRNCamera& camera, const QVariant& value)
    {
        shared(camera.*field).store(value.toBool());
        return true;
    }

    /// Reads and writes through an IO function. Some of them look at what they are handed before
    /// they read, and refuse numbers below 1.
    template <IntegerIO io>
    static bool readInteger(CZRNCamera& camera, QVariant& value)
    {
        int number = 1;
        if (!(camera.*io)(true, number)) {
            return false;
        }
        value = number;
        return true;
    }
    template <IntegerIO io>
    static bool writeInteger(CZRNCamera& camera, const QVariant& value)
    {
        int number = value.toInt();
        return (camera.*io)(false, number);
    }

    static bool readResolutions(CZRNCamera& camera, QVariant& value)
    {
        QMap<QString, QVariant> sizes;
        if (!camera.readResolutionList(sizes)) {
            return false;
        }
        value = sizes;
        return true;
    }
    static bool readSerialNumber(CZRNCamera& camera, QVariant& value)
    {
        QString serial;
        if (!camera.readSerial(serial)) {
            return false;
        }
        value = serial;
        return true;
    }
    static bool readStatus(CZRNCamera& camera, QVariant& value)
    {
        value = QMap<QString, QVariant>{
            {QStringLiteral("ONLINE"), camera.heartBeartQuery()},
            {QStringLiteral("FEAMERATE"), shared(camera.m_frameRate).load()},
        };
        return true;
    }
    static bool readSensorClass(CZRNCamera& camera, QVariant& value)
    {
        value = sensorTypeOf(shared(camera.m_sensorType).load()).sensorCount;
        return true;
    }

    static const std::array<ReadRow, 18> readTable;
    static const std::array<WriteRow, 13> writeTable;
    static constexpr auto hashOf = [](const auto& row) { return row.hash; };

    /// Whether the hashes ascend, which look-ups rely on. A missing row counts as a last one with
    /// hash 0, and fails.
    static constexpr bool isInOrder(const auto& table)
    {
        return std::ranges::adjacent_find(table, std::greater_equal(), hashOf) == table.end();
    }
    /// Whether every key that hosts may write can be read under the same label.
    static constexpr bool canReadWhatIsWritten()
    {
        return std::ranges::all_of(writeTable, [](const WriteRow& row) {
            return std::ranges::any_of(readTable, [&row](const ReadRow& same) {
                return same.hash == row.hash && std::string_view(same.label) == row.label;
            });
        });
    }

    /// The row of a key's hash, or null. The table is an argument of the template, so that its
    /// order is checked wherever it is searched.
    template <const auto& table>
    static constexpr auto find(std::uint64_t hash) -> decltype(table.data())
    {
        static_assert(isInOrder(table));
        const auto row = std::ranges::lower_bound(table, hash, {}, hashOf);
        return row != table.end() && row->hash == hash ? &*row : nullptr;
    }
};

// clang-format off
constexpr std::array<CZRNCamera::Properties::ReadRow, 18> CZRNCamera::Properties::readTable = {{
    {0x0b198ba1767507a2, "aux parameter",       readField<&CZRNCamera::m_auxParameter, quint32>},
    {0x0ec2211d95cee833, "resolution list",     readResolutions},
    {0x1f6c5c2656e191e0, "colour gain byte 3",  readInteger<&CZRNCamera::colorBGainIO>},
    {0x285a517c8c168c61, "gain read-back",      readField<&CZRNCamera::m_gainReadBack, bool>},
    {0x29a965c9f183c4d2, "frame rate",          readField<&CZRNCamera::m_frameRate, double>},
    {0x3dff273c09bc776c, "exposure read-back",  readField<&CZRNCamera::m_exposureReadBack, bool>},
    {0x4411635e20f62171, "serial number",       readSerialNumber},
    {0x449a9bd5989da2ed, "cache frame count",   readInteger<&CZRNCamera::cacheFrameCountIO>},
    {0x47e08ab676618ae1, "resolution index",    readInteger<&CZRNCamera::resolutionIndexIO>},
    {0x5505824926295a43, "grab timeout",        readField<&CZRNCamera::m_grabTimeout, quint32>},
    {0x65474eed32362c67, "sharpness",           readInteger<&CZRNCamera::sharpIO>},
    {0x66e7db0ec076d697, "device status",       readStatus},
    {0x8d696cf19b144aa8, "sensor class",        readSensorClass},
    {0x8fc00aeca53d6b2b, "colour gain byte 2",  readInteger<&CZRNCamera::colorGBGainIO>},
    {0x93d6675a08157b10, "colour gain byte 0",  readInteger<&CZRNCamera::colorRGainIO>},
    {0xd45d6ef7dabccc3b, "colour gain byte 1",  readInteger<&CZRNCamera::colorGRGainIO>},
    {0xe07737bd2ff8fb4c, "gamma",               readInteger<&CZRNCamera::gammaIO>},
    {0xfb071473263b06e5, "hue",                 readInteger<&CZRNCamera::hueIO>},
}};

constexpr std::array<CZRNCamera::Properties::WriteRow, 13> CZRNCamera::Properties::writeTable = {{
    {0x0b198ba1767507a2, "aux parameter",      isInteger, writeField<&CZRNCamera::m_auxParameter, &QVariant::toUInt>},
    {0x1f6c5c2656e191e0, "colour gain byte 3", isInteger, writeInteger<&CZRNCamera::colorBGainIO>},
    {0x285a517c8c168c61, "gain read-back",     isFlag,    writeFlag<&CZRNCamera::m_gainReadBack>},
    {0x3dff273c09bc776c, "exposure read-back", isFlag,    writeFlag<&CZRNCamera::m_exposureReadBack>},
    {0x449a9bd5989da2ed, "cache frame count",  isInteger, writeInteger<&CZRNCamera::cacheFrameCountIO>},
    {0x47e08ab676618ae1, "resolution index",   isInteger, writeInteger<&CZRNCamera::resolutionIndexIO>},
    {0x5505824926295a43, "grab timeout",       isInteger, writeField<&CZRNCamera::m_grabTimeout, &QVariant::toInt>},
    {0x65474eed32362c67, "sharpness",          isInteger, writeInteger<&CZRNCamera::sharpIO>},
    {0x8fc00aeca53d6b2b, "colour gain byte 2", isInteger, writeInteger<&CZRNCamera::colorGBGainIO>},
    {0x93d6675a08157b10, "colour gain byte 0", isInteger, writeInteger<&CZRNCamera::colorRGainIO>},
    {0xd45d6ef7dabccc3b, "colour gain byte 1", isInteger, writeInteger<&CZRNCamera::colorGRGainIO>},
    {0xe07737bd2ff8fb4c, "gamma",              isInteger, writeInteger<&CZRNCamera::gammaIO>},
    {0xfb071473263b06e5, "hue",                isInteger, writeInteger<&CZRNCamera::hueIO>},
}};
// clang-format on

ErrorCode CZRNCamera::getProperty(const QString& key, QMap<QString, QVariant>& values)
{
    const Operation operation;
    if (!operation) {
        return ErrorCode::NoCamera;
    }
    logDebug() << " getPproerty:" << key;
    if (!isConnected()) {
        return ErrorCode::NoCamera;
    }
    const auto* row = Properties::find<Properties::readTable>(keyHash(key));
    if (!row) {
        return ErrorCode::NotSupported;
    }
    QVariant value;
    if (!row->read(*this, value)) {
        return ErrorCode::PropertyFailed;
    }
    values.insert(valueEntry, value);
    return ErrorCode::Success;
}

ErrorCode CZRNCamera::setProperty(const QString& key, const QMap<QString, QVariant>& values)
{
    const Operation operation;
    if (!isConnected()) {
        return ErrorCode::NoCamera;
    }
    const auto value = values.constFind(valueEntry);
    if (value == values.constEnd()) {
        return ErrorCode::BadArgument;
    }
    static_assert(Properties::canReadWhatIsWritten());
    const auto* row = Properties::find<Properties::writeTable>(keyHash(key));
    if (!row) {
        return ErrorCode::NotSupported;
    }
    if (!row->accepts(*value) || !row->write(*this, *value)) {
        return ErrorCode::PropertyFailed;
    }
    return ErrorCode::Success;
}
