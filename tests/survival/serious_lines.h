#pragma once

#include <map>
#include <string>

namespace survival
{

/// Makes every test of the process fail that logs a line of level warning or worse, of whatever
/// category, unless the test has said that it expects it. To be called once, before the tests run.
void judgeLogs();

/// The running test may log lines that contain a match of @p pattern, a regular expression.
void expectLog(const char* pattern);

/// Lines of level warning or worse of the running test so far, as "category: text", and how often
/// each came.
std::map<std::string, int> seriousLines();

} // namespace survival
