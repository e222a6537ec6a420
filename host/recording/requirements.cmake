if(TARGET zrnhost)
    set(ZRN_HOST_ON TRUE)
endif()
zrn_need(ZRN_HOST_ON libcli11-dev)

# Formats of exports.
if(PKG_CONFIG_FOUND)
    pkg_check_modules(TIFF QUIET IMPORTED_TARGET libtiff-4)
    pkg_search_module(HDF5 QUIET IMPORTED_TARGET hdf5-serial hdf5)
    pkg_check_modules(GSTREAMER_APP QUIET IMPORTED_TARGET gstreamer-app-1.0>=1.20 gstreamer-video-1.0)
endif()
zrn_note(TIFF_FOUND libtiff-dev "host/recording: export to TIFF")
zrn_note(HDF5_FOUND libhdf5-dev "host/recording: export to HDF5")
zrn_note(GSTREAMER_APP_FOUND libgstreamer-plugins-base1.0-dev "host/recording: export to Matroska")
