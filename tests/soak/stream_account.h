#pragma once

#include "stream_ledger.h"

#include <cstdint>
#include <string>
#include <vector>

namespace soak
{

/// What a stream of the client library says of its frames.
struct StreamAccount {
    std::string stream;               ///< what the outcomes begin with
    std::vector<std::uint64_t> taken; ///< trailers, in their order
    std::uint64_t grabbed = 0;
    std::uint64_t dropped = 0; ///< from its queue
};

/// Sorts the frames that were sent meanwhile into outcomes. Those that start with "unexplained"
/// should not be.
Outcomes settle(const StreamAccount& account, const std::vector<SentFrame>& sent);

} // namespace soak
