#include "client/property_table.h"
#include "tool_run.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

namespace
{

/// What zrncam tells the shells' scripts, with descriptions.
QStringList linesFor(const QStringList& words)
{
    const QString output = QString::fromUtf8(ToolRun::of(QStringList{"__complete"} + words).output);
    return output.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QStringList offersFor(const QStringList& words)
{
    QStringList offers;
    for (const QString& line : linesFor(words)) {
        offers += line.section(QLatin1Char('\t'), 0, 0);
    }
    return offers;
}

/// What a pattern captures in a help text.
QStringList inHelp(const QStringList& arguments, const char* pattern)
{
    const QString help = QString::fromUtf8(ToolRun::of(arguments + QStringList{"--help"}).output);
    QStringList names;
    const QRegularExpression row(QString::fromLatin1(pattern), QRegularExpression::MultilineOption);
    auto match = row.globalMatch(help);
    while (match.hasNext()) {
        names += match.next().captured(1);
    }
    return names;
}

constexpr const char* optionPattern = "^  (?:-\\w,)?(--[\\w-]+)";

} // namespace

TEST(Completions, OfferEverySubcommandWithADescription)
{
    const QStringList lines = linesFor({""});
    EXPECT_GE(lines.size(), 12);
    for (const QString& line : lines) {
        EXPECT_FALSE(line.section(QLatin1Char('\t'), 1).isEmpty()) << line.toStdString();
    }
    const QStringList subcommands = inHelp({}, "^  ([a-z]+) ");
    for (const QString& name : subcommands) {
        EXPECT_TRUE(offersFor({""}).contains(name)) << name.toStdString();
    }
    EXPECT_EQ(subcommands.size(), lines.size());
}

TEST(Completions, OfferEveryOption)
{
    const QStringList global = inHelp({}, optionPattern);
    EXPECT_EQ(offersFor({"-"}), global);
    for (const QString& command : offersFor({""})) {
        QStringList shown = inHelp({command}, optionPattern) + QStringList{"--version"};
        QStringList offers = offersFor({command, "--"});
        shown.sort();
        offers.sort();
        EXPECT_EQ(offers, shown) << command.toStdString();
    }
}

TEST(Completions, OfferTheKeysOfTheTable)
{
    QStringList keys;
    QStringList writable;
    for (const zrn::PropertyInfo& property : zrn::propertyTable) {
        keys += QString::fromLatin1(property.key);
        writable += property.writable ? keys.mid(keys.size() - 1) : QStringList();
    }
    EXPECT_EQ(offersFor({"get", ""}), keys);
    EXPECT_EQ(offersFor({"--json", "set", ""}), writable);
    EXPECT_EQ(offersFor({"get", "Se"}), (QStringList{"SensorCount", "Serial"}));
    EXPECT_EQ(offersFor({"get", "Serial", ""}), QStringList());
    EXPECT_EQ(offersFor({"set", "EnableCheckGain", ""}), (QStringList{"true", "false"}));
    EXPECT_EQ(offersFor({"set", "Gamma", ""}), QStringList());
    EXPECT_EQ(offersFor({"command", ""}), QStringList{"ClearState"});
    EXPECT_EQ(offersFor({"settings", ""}), (QStringList{"save", "load"}));
    EXPECT_EQ(offersFor({"settings", "load", ""}), QStringList{":files"});
}

TEST(Completions, LeaveFilesAndFoldersToTheShell)
{
    EXPECT_EQ(offersFor({"--plugin", "/usr"}), QStringList{":files"});
    EXPECT_EQ(offersFor({"verify", "--junit=rep"}), QStringList{":files"});
    EXPECT_EQ(offersFor({"grab", "-o", ""}), QStringList{":folders"});
    EXPECT_EQ(offersFor({"doctor", "--root", ""}), QStringList{":folders"});
}

TEST(Completions, ValuesAreNotTakenForSubcommands)
{
    EXPECT_EQ(offersFor({"--index", "1", "str"}), QStringList{"stream"});
    EXPECT_EQ(offersFor({"--serial", "stream", "--keep"}), QStringList());
    EXPECT_EQ(offersFor({"--virtual", "type2", "str"}), QStringList{"stream"});
    EXPECT_EQ(offersFor({"--virtual", "stream", "--keep"}), QStringList{"--keep-alive"});
    EXPECT_EQ(offersFor({"grab", "--frames", ""}), QStringList());
}

TEST(Completions, NonsenseIsAnsweredWithNothing)
{
    EXPECT_EQ(offersFor({}), QStringList());
    EXPECT_EQ(offersFor({"unknown", "--unknown", "--unknown="}), QStringList());
    EXPECT_EQ(offersFor({"--=", "=", "--"}).size(), inHelp({}, optionPattern).size());
}
