#include "client/silence.h"

#include "client/findings.h"
#include "client/result_codes.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace zrn
{
namespace
{

std::string sentenceOf(const Finding& finding)
{
    std::string text = finding.message;
    text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
    return finding.remedy.empty() ? text + '.' : text + ":\n" + finding.remedy;
}

} // namespace

std::vector<std::string> explainSilence(const StreamCounters& counters, bool answers,
                                        const std::string& port,
                                        const std::vector<BusCamera>& onBus,
                                        std::optional<int> limitMiB)
{
    std::vector<std::string> sentences;
    if (counters.unusable > 0) {
        sentences.push_back(
            "Frames arrive, but none is usable: " + describeResult(counters.lastFailure) + '.');
    }
    sentences.emplace_back(
        answers ? "The camera answers control requests, so that cable and supply hold."
                : "The camera does not answer control requests either.");
    std::vector<BusCamera> own;
    std::ranges::copy_if(onBus, std::back_inserter(own),
                         [&port](const BusCamera& camera) { return camera.port == port; });
    std::vector<Finding> findings = judgeBus(own);
    findings.push_back(judgeTransferMemory(onBus, limitMiB));
    const std::size_t before = sentences.size();
    for (const Finding& finding : findings) {
        if (finding.verdict == Verdict::Warning || finding.verdict == Verdict::Problem) {
            sentences.push_back(sentenceOf(finding));
        }
    }
    if (sentences.size() == before) {
        sentences.push_back("Bus, access rights and kernel drivers are in order; " +
                            findings.back().message +
                            ". Restart the stream; if that does not help, replug the camera.");
    }
    return sentences;
}

} // namespace zrn
