#include "atomic_field.h"
#include "key_hash.h"
#include "zrn_camera.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace
{

const QString valueEntry = QStringLiteral("value");

constexpr qint32 singleImageSensorType = 6;

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
        return value.type() == QVariant::Int || value.type() == QVariant::UInt;
    }
    static bool isFlag(const QVariant& value)
    {
        return value.type() == QVariant::Bool || isInteger(value);
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
            {QStringLiteral("FEAMERATE"), camera.currentFrameRate()},
        };
        return true;
    }
    static bool readFrameRate(CZRNCamera& camera, QVariant& value)
    {
        value = camera.currentFrameRate();
        return true;
    }
    static bool readSensorClass(CZRNCamera& camera, QVariant& value)
    {
        value = shared(camera.m_sensorType).load() == singleImageSensorType ? 1 : 2;
        return true;
    }

    static const ReadRow readTable[18];
    static const WriteRow writeTable[13];
};

// clang-format off
const CZRNCamera::Properties::ReadRow CZRNCamera::Properties::readTable[18] = {
    {0x0b198ba1767507a2, "aux parameter",       readField<&CZRNCamera::m_auxParameter, quint32>},
    {0x0ec2211d95cee833, "resolution list",     readResolutions},
    {0x1f6c5c2656e191e0, "colour gain byte 3",  readInteger<&CZRNCamera::colorBGainIO>},
    {0x285a517c8c168c61, "gain read-back",      readField<&CZRNCamera::m_gainReadBack, bool>},
    {0x29a965c9f183c4d2, "frame rate",          readFrameRate},
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
};

const CZRNCamera::Properties::WriteRow CZRNCamera::Properties::writeTable[13] = {
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
};
// clang-format on

ErrorCode CZRNCamera::getProperty(const QString& key, QMap<QString, QVariant>& values)
{
    qCDebug(m_category) << " getPproerty:" << key;
    if (!isConnected()) {
        return ErrorCode::NoCamera;
    }
    const auto* row =
        std::ranges::find(Properties::readTable, keyHash(key), &Properties::ReadRow::hash);
    if (row == std::end(Properties::readTable)) {
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
    if (!isConnected()) {
        return ErrorCode::NoCamera;
    }
    const auto value = values.constFind(valueEntry);
    if (value == values.constEnd()) {
        return ErrorCode::BadArgument;
    }
    const auto* row =
        std::ranges::find(Properties::writeTable, keyHash(key), &Properties::WriteRow::hash);
    if (row == std::end(Properties::writeTable)) {
        return ErrorCode::NotSupported;
    }
    if (!row->accepts(*value) || !row->write(*this, *value)) {
        return ErrorCode::PropertyFailed;
    }
    return ErrorCode::Success;
}
