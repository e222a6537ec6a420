# Source files that are compiled several at a time instantiate the templates of the C++ library, Qt and GoogleTest once
# for all of them, which is most of what each costs alone. ZRN_UNITED_FILES=1 compiles each file alone, and names each in
# compile_commands.json. The driver's, where a changed line is waited for most often, are compiled alone but for
# sanitizers, or with ZRN_UNITED_DRIVER=ON, for who builds all of it once. Variables of the environment of these names
# are what they are at first.

set(zrn_united_files 12)
set(zrn_united_driver OFF)
foreach(name IN ITEMS files driver)
    string(TOUPPER "ZRN_UNITED_${name}" variable)
    if(DEFINED ENV{${variable}})
        set(zrn_united_${name} $ENV{${variable}})
    endif()
endforeach()
set(ZRN_UNITED_FILES ${zrn_united_files} CACHE STRING "How many source files of a target are compiled together")
option(ZRN_UNITED_DRIVER "Compile the driver's source files together, too" ${zrn_united_driver})

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
    if(ZRN_SANITIZE OR ZRN_UNITED_DRIVER)
        zrn_unite(${ARGN})
    endif()
endfunction()
