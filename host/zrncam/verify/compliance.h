#pragma once

#include "command.h"
#include "common/camera.h"
#include "common/property_table.h"

#include <QString>

#include <initializer_list>
#include <optional>
#include <vector>

/// How one check of a compliance run ended.
enum class CheckStatus {
    Passed,
    Failed,
    NotSupported, ///< the camera does not have this, and says so
};

/// One row of the table.
struct CheckRow {
    QString group;
    QString name;
    CheckStatus status;
    std::optional<ErrorCode> code; ///< what the operation answered; none for a comparison
    QString detail;
};

/// The account of a compliance run. Thread safety: thread-bound.
class Compliance
{
public:
    /// Name of the group that the following rows belong to.
    void setGroup(const QString& group) { m_group = group; }

    /// Adds a row: passed if @p code is @p expected. @return whether it is.
    bool expectCode(const QString& name, ErrorCode code, ErrorCode expected = ErrorCode::Success);
    /// Adds a row: passed on success, not supported if the answer is @p unsupported.
    bool expectSupport(const QString& name, ErrorCode code, ErrorCode unsupported);
    /// Adds a row for a comparison.
    bool expect(const QString& name, bool holds, const QString& detail);
    /// Adds a row for something that the camera does not have.
    void notSupported(const QString& name, ErrorCode code, const QString& detail);

    const std::vector<CheckRow>& rows() const { return m_rows; }
    int count(CheckStatus status) const;

private:
    void add(const QString& name, CheckStatus status, std::optional<ErrorCode> code,
             const QString& detail);

    QString m_group;
    std::vector<CheckRow> m_rows;
};

/// "pass", "FAIL", "not supported".
const char* statusName(CheckStatus status);

// The groups of a run, in this order. Each leaves the camera as it found it: connected, stopped,
// and with the settings that it had.
void checkIdentity(zrnhost::Camera& camera, Compliance& compliance);
void checkExposure(zrnhost::Camera& camera, Compliance& compliance);
void checkGain(zrnhost::Camera& camera, Compliance& compliance);
void checkGeometry(zrnhost::Camera& camera, Compliance& compliance);
void checkProperties(zrnhost::Camera& camera, Compliance& compliance);
void checkCommands(zrnhost::Camera& camera, Compliance& compliance);
void checkStream(zrnhost::Camera& camera, Compliance& compliance);

/// Disconnects, and connects the same camera again after another enumeration.
void checkLifecycle(IFactory& factory, zrnhost::Camera& camera, Compliance& compliance);
