# libFuzzer comes with clang; the stand-in for libuvc with the tests.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(ZRN_CLANG_FOUND TRUE)
endif()
if(TARGET fake_uvc)
    set(ZRN_FAKE_UVC_FOUND TRUE)
endif()
zrn_need(ZRN_CLANG_FOUND clang)
zrn_need(ZRN_FAKE_UVC_FOUND libgtest-dev)
