# Precompiled headers: a source file of fifty lines spends its compile time on those of the C++ library, Qt and
# GoogleTest. Targets whose options agree form a family, which compiles them once. No source file relies on them:
# CMAKE_DISABLE_PRECOMPILE_HEADERS builds the same without.

set(zrn_no_source "${CMAKE_BINARY_DIR}/made/no_source.cpp")
file(CONFIGURE OUTPUT "${zrn_no_source}" CONTENT "")

set(ZRN_STANDARD_HEADERS
    <algorithm> <array> <atomic> <chrono> <condition_variable> <cstdint> <cstdlib> <cstring> <functional> <map>
    <memory> <mutex> <optional> <span> <stdexcept> <string> <thread> <utility> <vector>)

# zrn_header_family(<family> HEADERS <header>... [LIBRARIES <library>...] [DEFINITIONS <definition>...])
# The headers besides those of the C++ library, and what compiles them. The options are those of the calling folder.
function(zrn_header_family family)
    cmake_parse_arguments(arg "" "" "HEADERS;LIBRARIES;DEFINITIONS" ${ARGN})
    set(owner zrn_headers_${family})
    add_library(${owner} OBJECT EXCLUDE_FROM_ALL "${zrn_no_source}")
    target_link_libraries(${owner} PRIVATE ${arg_LIBRARIES})
    target_compile_definitions(${owner} PRIVATE ${arg_DEFINITIONS})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang") # ccache could not give the same file again otherwise
        target_compile_options(${owner} PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
    endif()
    target_precompile_headers(${owner} PRIVATE ${ZRN_STANDARD_HEADERS} ${arg_HEADERS})
endfunction()

# zrn_precompile(<family> <target>...): the targets may have definitions besides the family's.
function(zrn_precompile family)
    foreach(target IN LISTS ARGN)
        target_precompile_headers(${target} REUSE_FROM zrn_headers_${family})
    endforeach()
endfunction()

# zrn_include_moc(<target>...): a source file of the target includes what moc makes of it, so that nothing is left for the
# file that CMake compiles the rest in.
function(zrn_include_moc)
    foreach(target IN LISTS ARGN)
        set_target_properties(${target} PROPERTIES AUTOMOC ON)
        set_source_files_properties("${CMAKE_CURRENT_BINARY_DIR}/${target}_autogen/mocs_compilation.cpp"
            PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
    endforeach()
endfunction()
