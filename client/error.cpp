#include "client/error.h"

#include "client/result_codes.h"

namespace zrn
{

Error::Error(Kind kind, std::string name, const std::string& message, std::string remedy)
    : std::runtime_error(message)
    , m_kind(kind)
    , m_name(std::move(name))
    , m_remedy(std::move(remedy))
{
}

Error::Error(const std::string& tried, ErrorCode code)
    : std::runtime_error(tried + ": " + describeResult(code))
    , m_kind(Kind::Refused)
    , m_code(code)
    , m_name(resultName(code))
    , m_tried(tried)
{
    const ResultCodeInfo* info = findResultCode(code);
    m_remedy = info ? info->remedy : "";
}

void check(ErrorCode code, const std::string& tried)
{
    if (code != ErrorCode::Success) {
        throw Error(tried, code);
    }
}

} // namespace zrn
