// The hash under which property and command keys are known.

#include "key_hash.h"

#include <QString>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace
{

constexpr std::uint64_t offsetBasis = 0x811c9dc5;
constexpr std::uint64_t prime = 0x01000193;

struct HashedKey {
    const char* text;
    std::uint64_t hash;
};

constexpr HashedKey hostKeys[] = {
    {"CapturePeriod", 0x0b198ba1767507a2},   {"ResolutionList", 0x0ec2211d95cee833},
    {"BGain", 0x1f6c5c2656e191e0},           {"EnableCheckGain", 0x285a517c8c168c61},
    {"FrameRate", 0x29a965c9f183c4d2},       {"EnableCheckExposureTime", 0x3dff273c09bc776c},
    {"Serial", 0x4411635e20f62171},          {"CacheFrameCount", 0x449a9bd5989da2ed},
    {"ResolutionIndex", 0x47e08ab676618ae1}, {"MaxGrabWaitTime", 0x5505824926295a43},
    {"Sharp", 0x65474eed32362c67},           {"HeartBeat", 0x66e7db0ec076d697},
    {"SensorCount", 0x8d696cf19b144aa8},     {"GBGain", 0x8fc00aeca53d6b2b},
    {"RGain", 0x93d6675a08157b10},           {"GRGain", 0xd45d6ef7dabccc3b},
    {"Gamma", 0xe07737bd2ff8fb4c},           {"Hue", 0xfb071473263b06e5},
    {"ClearState", 0xde36c5592bfe6027},
};

} // namespace

TEST(KeyHash, KnowsEveryKeyOfTheHosts)
{
    for (const HashedKey& key : hostKeys) {
        EXPECT_EQ(hash_string(key.text), key.hash) << key.text;
        EXPECT_EQ(keyHash(QString::fromLatin1(key.text)), key.hash) << key.text;
    }
}

TEST(KeyHash, TheEmptyTextHashesToTheOffsetBasis)
{
    EXPECT_EQ(hash_string(""), offsetBasis);
    EXPECT_EQ(keyHash(QString()), offsetBasis);
    EXPECT_EQ(keyHash(QString("")), offsetBasis);
}

TEST(KeyHash, BytesAreSignExtended)
{
    EXPECT_EQ(hash_string("\x7f"), offsetBasis * prime ^ 0x7fU);
    EXPECT_EQ(hash_string("\x80"), offsetBasis * prime ^ 0xffffffffffffff80U);
    EXPECT_EQ(hash_string("\xff"), offsetBasis * prime ^ 0xffffffffffffffffU);
}

TEST(KeyHash, TheArithmeticWrapsAtSixtyFourBits)
{
    std::uint64_t expected = offsetBasis;
    for (int i = 0; i < 100; ++i) {
        expected = expected * prime ^ 'a';
    }
    EXPECT_EQ(hash_string(std::string(100, 'a')), expected);
}

TEST(KeyHash, AStringIsHashedWithItsNuls)
{
    EXPECT_EQ(hash_string(std::string("a\0b", 3)),
              ((offsetBasis * prime ^ 'a') * prime) * prime ^ 'b');
}

TEST(KeyHash, AKeyEndsAtItsFirstNul)
{
    EXPECT_EQ(keyHash(QString::fromLatin1("Serial\0more", 11)), 0x4411635e20f62171U);
    EXPECT_EQ(keyHash(QString::fromLatin1("\0Serial", 7)), offsetBasis);
}

TEST(KeyHash, AKeyIsHashedByItsLatin1Bytes)
{
    EXPECT_EQ(keyHash(QString(QChar(0xe4))), offsetBasis * prime ^ 0xffffffffffffffe4U);
    EXPECT_EQ(keyHash(QString(QChar(0x20ac))), hash_string("?"));
    EXPECT_EQ(keyHash(QString("Ser") + QChar(0x0131) + "al"), hash_string("Ser?al"));
}
