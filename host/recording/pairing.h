#pragma once

#include <QJsonObject>

#include <string>
#include <vector>

namespace zrnrec
{

struct PairRequest {
    std::vector<std::string> recordings; ///< of several cameras, several of one in any order
    std::string table;                   ///< file of the pairs; empty: none
    double withinMilliseconds = 0;       ///< between the frames of a pair; 0: half a period
};

/// Finds the frames that were taken at the same time, by the date of their first bytes, or of their
/// arrival where that is unknown. The frames of the camera of the first recording have each at most
/// one of every other camera beside it: the nearest one, if it is near enough. Each frame of each
/// camera is in the table once.
/// @return what there is of each camera, and how it lies to the first one @throws zrn::Error
QJsonObject pairRecordings(const PairRequest& request);

} // namespace zrnrec
