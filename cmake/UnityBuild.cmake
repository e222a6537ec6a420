# Source files that are compiled a few at a time instantiate the templates of the C++ library, Qt and GoogleTest once
# for all of them, which is most of what each costs alone. Not so the driver's, where a changed line is waited for most
# often. ZRN_UNITE=OFF compiles each file alone, and names each in compile_commands.json.

option(ZRN_UNITE "Compile a few source files of a target together" ON)

# zrn_unite(<target>...)
function(zrn_unite)
    if(NOT ZRN_UNITE)
        return()
    endif()
    set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 4)
    foreach(target IN LISTS ARGN)
        # GCC takes a fixture of a file's anonymous namespace for one of a header's.
        target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    endforeach()
endfunction()
