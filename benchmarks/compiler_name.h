#pragma once

#ifdef __clang__
inline constexpr const char* compilerName = "clang";
inline constexpr int compilerVersion = __clang_major__;
#else
inline constexpr const char* compilerName = "g++";
inline constexpr int compilerVersion = __GNUC__;
#endif
