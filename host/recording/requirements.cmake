if(TARGET zrnhost)
    set(ZRN_HOST_ON TRUE)
endif()
zrn_need(ZRN_HOST_ON libcli11-dev)
