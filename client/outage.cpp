#include "client/outage.h"

#include <iomanip>
#include <sstream>

namespace zrn
{

std::string Outage::text() const
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << "at " << begin << " s for " << seconds
         << " s: " << nameOf(cause) << ", repair: " << nameOf(repair) << ", ";
    if (isRenumbered) {
        text << "the camera counts anew";
    } else {
        text << (isMissingExact ? "" : "at least ") << missing << " frames missing";
    }
    return text.str();
}

const char* nameOf(Outage::Cause cause)
{
    return cause == Outage::Cause::Silent ? "silent" : "gone";
}

const char* nameOf(Outage::Repair repair)
{
    switch (repair) {
    case Outage::Repair::Restarted:
        return "restarted";
    case Outage::Repair::Reconnected:
        return "reconnected";
    default:
        return "none";
    }
}

} // namespace zrn
