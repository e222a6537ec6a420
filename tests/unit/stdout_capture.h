#pragma once

#include <string>

/// Collects what the process writes to its standard output while it lives. One at a time.
class StdoutCapture
{
public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    /// What was written so far.
    [[nodiscard]] std::string text() const;

private:
    int m_savedDescriptor;
    int m_fileDescriptor;
};
