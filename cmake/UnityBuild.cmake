# Source files that are compiled a few at a time instantiate the templates of the C++ library, Qt and GoogleTest once
# for all of them, which is most of what each costs alone. Not so the driver's, where a changed line is waited for most
# often, but for sanitizers, which are built as a whole. ZRN_UNITED_FILES=1 compiles each file alone, and names each in
# compile_commands.json; a variable of the environment of that name is what it is at first.

set(zrn_united 4)
if(DEFINED ENV{ZRN_UNITED_FILES})
    set(zrn_united $ENV{ZRN_UNITED_FILES})
endif()
set(ZRN_UNITED_FILES ${zrn_united} CACHE STRING "How many source files of a target are compiled together")

# zrn_unite(<target>...)
function(zrn_unite)
    if(ZRN_UNITED_FILES LESS 2)
        return()
    endif()
    set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${ZRN_UNITED_FILES})
    foreach(target IN LISTS ARGN)
        # GCC takes a fixture of a file's anonymous namespace for one of a header's.
        target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    endforeach()
endfunction()

# zrn_unite_driver(<target>...)
function(zrn_unite_driver)
    if(ZRN_SANITIZE)
        zrn_unite(${ARGN})
    endif()
endfunction()
