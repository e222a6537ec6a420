#pragma once

#include "usb_user.h"

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace company
{

/// One step of a case as the other user saw it.
struct Step {
    std::string name;
    std::string outcome;
    double milliseconds = 0;
};
using Transcript = std::vector<Step>;

/// Collects a transcript from one of the functions of usb_user.h.
Transcript collect(const std::function<void(TellStep, void*)>& use);

/// The other user in a process without the driver: the program alone_with_usb.
class AloneProcess
{
public:
    AloneProcess();
    ~AloneProcess();
    AloneProcess(const AloneProcess&) = delete;
    AloneProcess& operator=(const AloneProcess&) = delete;

    /// Goes through a case there. @throws std::runtime_error when the process has ended
    Transcript run(const std::string& name);

private:
    int m_process = -1;
    std::FILE* m_commands = nullptr;
    std::FILE* m_answers = nullptr;
};

} // namespace company
