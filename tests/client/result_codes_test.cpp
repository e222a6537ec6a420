#include "client/error.h"
#include "client/result_codes.h"
#include "document_table.h"

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <gtest/gtest.h>

using namespace zrn;

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
              "1034 GrabTimeout (0x40a): no frame arrived within the wait");
    EXPECT_EQ(describeResult(static_cast<ErrorCode>(4242)),
              "4242 Unknown (0x1092): a code that the host contract does not know");
}

TEST(ResultCodes, DocumentHasTheTable)
{
    QList<QStringList> rows;
    for (const ResultCodeInfo& info : resultCodes()) {
        rows += {QString::number(static_cast<quint32>(info.code)),
                 QStringLiteral("`%1`").arg(QLatin1String(info.name)),
                 QString::fromLatin1(info.meaning),
                 QString::fromLatin1(info.remedy).replace(QLatin1Char('\''), QLatin1Char('`'))};
    }
    const QStringList head{QStringLiteral("code"), QStringLiteral("enumerator"),
                           QStringLiteral("meaning"), QStringLiteral("what helps")};
    const QString difference = differenceInDocument(QStringLiteral("result-codes.md"), head, rows);
    EXPECT_TRUE(difference.isEmpty()) << difference.toStdString();
}

TEST(ResultCodes, ContractHasTheSameNamesAndMeanings)
{
    QFile header(QStringLiteral(CONTRACT_DIR "/error_code.h"));
    ASSERT_TRUE(header.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(header.readAll());
    const QRegularExpression line(QStringLiteral("^ +(\\w+) = (\\d+), +///< (.*)$"),
                                  QRegularExpression::MultilineOption);
    QStringList declared;
    auto match = line.globalMatch(text);
    while (match.hasNext()) {
        declared += match.next().capturedTexts().mid(1).join(QLatin1Char(' '));
    }
    QStringList known;
    for (const ResultCodeInfo& info : resultCodes()) {
        known +=
            QStringLiteral("%1 %2 %3")
                .arg(QLatin1String(info.name), QString::number(static_cast<quint32>(info.code)),
                     QLatin1String(info.meaning));
    }
    EXPECT_EQ(declared, known);
}

TEST(ErrorTest, CheckThrowsOnlyOnFailure)
{
    EXPECT_NO_THROW(check(ErrorCode::Success, "starting"));
    try {
        check(ErrorCode::StreamStartFailed, "starting");
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), Error::Kind::Refused);
        EXPECT_EQ(error.code(), ErrorCode::StreamStartFailed);
        EXPECT_EQ(error.name(), "StreamStartFailed");
        EXPECT_EQ(error.tried(), "starting");
        EXPECT_TRUE(std::string(error.what()).starts_with("starting: 1052"));
        EXPECT_FALSE(error.remedy().empty());
    }
}
