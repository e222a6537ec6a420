# Compiler settings shared by every target.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Release, Debug or RelWithDebInfo" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# One folder for what a user runs, one for what a host loads.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")

option(ZRN_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
set(ZRN_SANITIZE "" CACHE STRING "Sanitizers for every target, for example address,undefined or thread")

# Qt asks it of programs, too; so all that is compiled can share precompiled headers.
add_compile_options(-fPIC)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wundef
                    -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align
                    -Wformat=2)
# GCC would look for garbage in its precompiled headers again and again: a tenth of its time, for a seventh less memory.
add_compile_options("$<$<CXX_COMPILER_ID:GNU>:--param=ggc-min-heapsize=4000000>")
if(ZRN_WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
endif()
if(ZRN_SANITIZE)
    add_compile_options(-fsanitize=${ZRN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${ZRN_SANITIZE})
    # One name for what each compiler says in its own way.
    if(ZRN_SANITIZE MATCHES address)
        add_compile_definitions(ZRN_UNDER_ADDRESS_SANITIZER)
    elseif(ZRN_SANITIZE MATCHES thread)
        add_compile_definitions(ZRN_UNDER_THREAD_SANITIZER)
    endif()
    # GCC 12 then sees overruns in std::string's operations that are none.
    add_compile_options("$<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds;-Wno-stringop-overflow;-Wno-stringop-overread>")
endif()

# zrn_optimise_little(<target>...): programs that wait for cameras and for people. At -O3 they compile for half as long
# again; packages are built with other options.
function(zrn_optimise_little)
    foreach(target IN LISTS ARGN)
        target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
    endforeach()
endfunction()

# zrn_optimise_nothing(<source>...): files of the calling folder that do little but name the options of a command line.
# Optimised, they cost as much as ten others, and several times that with a sanitizer.
function(zrn_optimise_nothing)
    set_source_files_properties(${ARGN} PROPERTIES
        COMPILE_OPTIONS "$<$<CONFIG:Release,RelWithDebInfo>:-O0>"
        SKIP_PRECOMPILE_HEADERS ON
        SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()

option(ZRN_FUZZ "Instrument everything for libFuzzer as well and build the fuzzers; needs clang" OFF)
if(ZRN_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# What was compiled before is taken from ccache. It caches nothing that has precompiled headers unless it is told that
# CMake sees to them.
find_program(ZRN_CCACHE ccache)
if(ZRN_CCACHE AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER
        "${CMAKE_COMMAND}" -E env "CCACHE_SLOPPINESS=pch_defines,time_macros" "${ZRN_CCACHE}")
endif()

include(CTest)
