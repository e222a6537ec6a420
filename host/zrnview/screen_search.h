#pragma once

#include <QtGlobal>

namespace zrnview
{

/// While the application object is made: ends the program with a sentence where Qt, which finds no
/// screen, would abort it. One object at a time.
class ScreenSearch
{
public:
    ScreenSearch();
    /// Prints what Qt has warned of meanwhile.
    ~ScreenSearch();
    ScreenSearch(const ScreenSearch&) = delete;
    ScreenSearch& operator=(const ScreenSearch&) = delete;

private:
    const QtMessageHandler m_before;
};

} // namespace zrnview
