if(PKG_CONFIG_FOUND)
    pkg_check_modules(GSTREAMER QUIET IMPORTED_TARGET gstreamer-1.0>=1.22 gstreamer-base-1.0 gstreamer-video-1.0)
    if(GSTREAMER_FOUND)
        # Its -pthread would part these targets from the precompiled headers.
        set_property(TARGET PkgConfig::GSTREAMER PROPERTY INTERFACE_COMPILE_OPTIONS "")
    endif()
endif()
zrn_need(GSTREAMER_FOUND libgstreamer-plugins-base1.0-dev)
