#pragma once

#include "error_code.h"

#include <span>
#include <string>

namespace zrn
{

/// What a host tells its user about one result code.
struct ResultCodeInfo {
    ErrorCode code;
    const char* name;    ///< one word, stable, for scripts
    const char* meaning; ///< what happened, lower case, without a full stop
    const char* remedy;  ///< what the user can do about it; empty when there is nothing to do
};

/// Every code of the host contract, ascending. Thread safety: reentrant, as all of this header.
std::span<const ResultCodeInfo> resultCodes();

/// @return the entry of @p code, or null for a number that the contract does not know.
const ResultCodeInfo* findResultCode(ErrorCode code);

/// Its name, or "Unknown".
const char* resultName(ErrorCode code);

/// "1034 GrabTimeout (0x40a): no frame arrived within the wait".
std::string describeResult(ErrorCode code);

} // namespace zrn
