find_package(GTest QUIET)
zrn_need(GTest_FOUND libgtest-dev)
if(TARGET GTest::gmock_main)
    set(ZRN_GMOCK_FOUND TRUE)
endif()
zrn_need(ZRN_GMOCK_FOUND libgmock-dev)

# Hosts that link what machine vision programs link.
find_library(OPENCV_VIDEOIO_LIBRARY opencv_videoio)
find_library(ARAVIS_LIBRARY aravis-0.8)
if(OPENCV_VIDEOIO_LIBRARY AND ARAVIS_LIBRARY)
    set(ZRN_VISION_LIBRARIES "${OPENCV_VIDEOIO_LIBRARY}" "${ARAVIS_LIBRARY}")
endif()
zrn_note(ZRN_VISION_LIBRARIES "libopencv-videoio-dev libaravis-dev" "tests/company: a host with OpenCV and Aravis")
