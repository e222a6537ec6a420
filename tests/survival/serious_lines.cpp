#include "serious_lines.h"

#include <QString>
#include <QtGlobal>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <mutex>
#include <regex>
#include <vector>

namespace survival
{
namespace
{

std::mutex mutex; ///< guards the lists; libuvc's threads log as well
std::map<std::string, int> lines;
std::vector<std::regex> expected;

void handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    const std::string line =
        std::string(context.category ? context.category : "") + ": " + text.toStdString();
    const std::lock_guard locker(mutex);
    std::cerr << line << '\n';
    if (type != QtDebugMsg && type != QtInfoMsg) {
        ++lines[line];
    }
}

class LogJudge : public testing::EmptyTestEventListener
{
    void OnTestStart(const testing::TestInfo& /*test*/) override
    {
        const std::lock_guard locker(mutex);
        lines.clear();
        expected.clear();
    }
    void OnTestEnd(const testing::TestInfo& /*test*/) override
    {
        const std::lock_guard locker(mutex);
        for (const auto& [line, count] : lines) {
            const bool isExpected =
                std::ranges::any_of(expected, [&text = line](const std::regex& pattern) {
                    return std::regex_search(text, pattern);
                });
            if (!isExpected) {
                ADD_FAILURE() << "unexpected log line, " << count << " times: " << line;
            }
        }
    }
};

} // namespace

void judgeLogs()
{
    qInstallMessageHandler(handle);
    testing::UnitTest::GetInstance()->listeners().Append(new LogJudge);
}

void expectLog(const char* pattern)
{
    const std::lock_guard locker(mutex);
    expected.emplace_back(pattern);
}

std::map<std::string, int> seriousLines()
{
    const std::lock_guard locker(mutex);
    return lines;
}

} // namespace survival
