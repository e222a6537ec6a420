#include "common/driver_error.h"
#include "common/result_codes.h"

#include <QSet>
#include <gtest/gtest.h>

using namespace zrnhost;

TEST(ResultCodes, EveryCodeOfTheContractHasItsRow)
{
    QList<quint32> codes;
    for (const ResultCodeInfo& info : resultCodes()) {
        codes += static_cast<quint32>(info.code);
    }
    const QList<quint32> contract{0,    512,  513,  769,  770,  771,  772,  775,
                                  776,  777,  779,  780,  781,  1033, 1034, 1035,
                                  1037, 1038, 1039, 1040, 1041, 1047, 1052};
    EXPECT_EQ(codes, contract);
}

TEST(ResultCodes, NamesAreUniqueAndEveryFailureNamesARemedy)
{
    QSet<QString> names;
    for (const ResultCodeInfo& info : resultCodes()) {
        names.insert(QString::fromLatin1(info.name));
        EXPECT_FALSE(QString::fromLatin1(info.meaning).isEmpty()) << info.name;
        EXPECT_EQ(QString::fromLatin1(info.remedy).isEmpty(), info.code == ErrorCode::Success)
            << info.name;
    }
    EXPECT_EQ(static_cast<std::size_t>(names.size()), resultCodes().size());
}

TEST(ResultCodes, DescriptionHoldsNumberNameAndMeaning)
{
    EXPECT_EQ(describeResult(ErrorCode::GrabTimeout),
              QStringLiteral("1034 GrabTimeout (0x40a): no frame arrived within the wait"));
    EXPECT_EQ(describeResult(static_cast<ErrorCode>(4242)),
              QStringLiteral("4242 Unknown (0x1092): a code that the host contract does not know"));
}

TEST(DriverErrorTest, CheckThrowsOnlyOnFailure)
{
    EXPECT_NO_THROW(check(ErrorCode::Success, QStringLiteral("starting")));
    try {
        check(ErrorCode::StreamStartFailed, QStringLiteral("starting"));
        FAIL() << "no exception";
    } catch (const DriverError& error) {
        EXPECT_EQ(error.code(), ErrorCode::StreamStartFailed);
        EXPECT_TRUE(QString::fromUtf8(error.what()).startsWith(QLatin1String("starting: 1052")));
        EXPECT_FALSE(error.remedy().isEmpty());
    }
}
