# The Qt that everything is built with. A process has one: plugin, hosts and bindings of one build go together, and
# what is installed for Qt 6 lies beside what is for Qt 5.

set(ZRN_QT 5 CACHE STRING "Qt that everything is built with: 5 or 6")
set_property(CACHE ZRN_QT PROPERTY STRINGS 5 6)
if(ZRN_QT EQUAL 5)
    set(ZRN_QT_LEAST 5.15)
    set(ZRN_QT_PACKAGE qtbase5-dev)
    set(ZRN_QT_SUFFIX "")
elseif(ZRN_QT EQUAL 6)
    set(ZRN_QT_LEAST 6.4)
    set(ZRN_QT_PACKAGE qt6-base-dev)
    set(ZRN_QT_SUFFIX -qt6)
else()
    message(FATAL_ERROR "ZRN_QT is 5 or 6, not ${ZRN_QT}")
endif()

find_package(Qt${ZRN_QT} ${ZRN_QT_LEAST} REQUIRED COMPONENTS Core)
