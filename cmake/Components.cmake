# Optional parts of the build. A folder joins in when everything it needs is found; what is missing is
# named, with the Debian package that provides it, in the summary that closes the configure step.

set(ZRN_COMPONENT_LINES "")

# zrn_need(<variable> <debian package>): to be called in a component's requirements.cmake.
# Notes the package as missing when the variable is not true.
macro(zrn_need variable package)
    if(NOT ${variable})
        list(APPEND zrn_missing ${package})
    endif()
endmacro()

# zrn_note(<variable> <debian package> <description>): a summary line for something that joins in when the
# variable is true and that its folder does without otherwise.
macro(zrn_note variable package description)
    if(${variable})
        list(APPEND ZRN_COMPONENT_LINES "  on   ${description}")
    else()
        list(APPEND ZRN_COMPONENT_LINES "  off  ${description} (needs: ${package})")
    endif()
endmacro()

# zrn_component(<folder> <description>): reads <folder>/requirements.cmake, then adds the folder.
macro(zrn_component folder description)
    set(zrn_missing "")
    if(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/requirements.cmake")
        include("${CMAKE_CURRENT_SOURCE_DIR}/${folder}/requirements.cmake")
    endif()
    if(zrn_missing)
        list(REMOVE_DUPLICATES zrn_missing)
        list(JOIN zrn_missing " " zrn_missing)
        list(APPEND ZRN_COMPONENT_LINES "  off  ${folder}: ${description} (needs: ${zrn_missing})")
    elseif(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/CMakeLists.txt")
        add_subdirectory(${folder})
        list(APPEND ZRN_COMPONENT_LINES "  on   ${folder}: ${description}")
    endif()
endmacro()

function(zrn_print_components)
    message(STATUS "zrncamera ${PROJECT_VERSION}, ${CMAKE_BUILD_TYPE}")
    message(STATUS "  on   plugin: libzrncamera.so")
    foreach(line IN LISTS ZRN_COMPONENT_LINES)
        message(STATUS "${line}")
    endforeach()
endfunction()
