#pragma once

#include "error_code.h"

#include <stdexcept>
#include <string>

namespace zrn
{

/// What went wrong, the one exception of this library. what() is the message for a person.
class Error : public std::runtime_error
{
public:
    enum class Kind {
        Plugin,    ///< the driver was not found or cannot be used
        NoCamera,  ///< no camera, or not the one that was asked for, or it cannot be opened
        Refused,   ///< the driver or the camera answered with a code
        Recording, ///< a recording cannot be written or read
    };

    /// @param name one word, stable, for scripts @param remedy may be empty
    Error(Kind kind, std::string name, const std::string& message, std::string remedy = {});
    /// An answer of the driver other than success.
    /// @param tried what was tried, as in "connecting to camera 0"
    Error(const std::string& tried, ErrorCode code);

    [[nodiscard]] Kind kind() const { return m_kind; }
    /// The driver's answer; Success where it was not asked.
    [[nodiscard]] ErrorCode code() const { return m_code; }
    /// "GrabTimeout", "WrongIid", ...
    [[nodiscard]] const std::string& name() const { return m_name; }
    /// What was tried; empty where the message says it all.
    [[nodiscard]] const std::string& tried() const { return m_tried; }
    /// What the user can do about it; may be empty.
    [[nodiscard]] const std::string& remedy() const { return m_remedy; }

private:
    Kind m_kind;
    ErrorCode m_code = ErrorCode::Success;
    std::string m_name;
    std::string m_tried;
    std::string m_remedy;
};

/// Throws Error unless @p code is success.
void check(ErrorCode code, const std::string& tried);

} // namespace zrn
