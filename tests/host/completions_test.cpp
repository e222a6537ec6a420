#include "common/property_table.h"
#include "tool_run.h"

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <gtest/gtest.h>

namespace
{

class Completions : public testing::TestWithParam<const char*>
{
protected:
    /// Whether the script mentions @p word as a word of its own.
    bool mentions(const QString& word) const
    {
        const QRegularExpression pattern(
            QStringLiteral("(?<![\\w-])%1(?![\\w-])").arg(QRegularExpression::escape(word)));
        return pattern.match(m_script).hasMatch();
    }

    void SetUp() override
    {
        QFile file(QStringLiteral(COMPLETIONS_DIR "/") + QString::fromLatin1(GetParam()));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        m_script = QString::fromUtf8(file.readAll());
    }

    QString m_script;
};

/// Words of the lines under "Subcommands:" in the help text.
QStringList subcommands()
{
    const QString help = QString::fromUtf8(ToolRun::of({"--help"}).output);
    QStringList names;
    const QRegularExpression row(QStringLiteral("^  (\\w+) "), QRegularExpression::MultilineOption);
    auto match = row.globalMatch(help.mid(help.indexOf(QLatin1String("Subcommands:"))));
    while (match.hasNext()) {
        names += match.next().captured(1);
    }
    return names;
}

/// Long options in a help text.
QSet<QString> options(const QStringList& arguments)
{
    const QString help = QString::fromUtf8(ToolRun::of(arguments).output);
    QSet<QString> names;
    const QRegularExpression option(QStringLiteral("^  (?:-\\w,)?--([\\w-]+)"),
                                    QRegularExpression::MultilineOption);
    auto match = option.globalMatch(help);
    while (match.hasNext()) {
        names.insert(match.next().captured(1));
    }
    return names;
}

} // namespace

TEST_P(Completions, KnowEverySubcommandAndOption)
{
    const QStringList commands = subcommands();
    EXPECT_EQ(commands.size(), 12);
    QSet<QString> names = options({"--help"});
    for (const QString& command : commands) {
        EXPECT_TRUE(mentions(command)) << command.toStdString();
        names += options({command, "--help"});
    }
    EXPECT_GE(names.size(), 15);
    // fish takes options without their dashes.
    const bool bare = m_script.contains(QLatin1String("complete -c zrncam"));
    for (const QString& name : names) {
        EXPECT_TRUE(mentions(bare ? name : QStringLiteral("--") + name)) << name.toStdString();
    }
}

TEST_P(Completions, KnowEveryKey)
{
    for (const zrnhost::PropertyInfo& property : zrnhost::properties()) {
        const QString key = QString::fromLatin1(property.key);
        EXPECT_EQ(m_script.count(QRegularExpression(QStringLiteral("\\b%1\\b").arg(key))) >= 2,
                  property.writable)
            << property.key;
        EXPECT_TRUE(mentions(key)) << property.key;
    }
}

INSTANTIATE_TEST_SUITE_P(Shells, Completions,
                         testing::Values("zrncam.bash", "_zrncam", "zrncam.fish"));
