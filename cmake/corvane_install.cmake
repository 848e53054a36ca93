# What programs and plug-ins are built against, as it lies in the source tree: #include "fsmdc/fs_plugin.h".
set(public_headers
    fsmdc/fs_plugin.h fsmdc/fs_result.h fsmdc/lease.h fsmdc/loader.h fsmdc/messages.h fsmdc/records.h
    fsmdc/scsi_io.h fsmdc/service.h
    lan/client.h lan/dgram.h lan/header.h lan/server.h
    mdcmain/daemon.h mdcmain/datagram_server.h mdcmain/descriptor_server.h mdcmain/locale.h mdcmain/log.h
    mdcmain/log_state.h mdcmain/segment.h
    osl/byte_order.h osl/counters.h osl/export.h osl/fsuni.h osl/memory.h osl/quick_lock.h osl/share_name.h
    osl/thread.h osl/token.h osl/types.h)
foreach(header ${public_headers})
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${header} DESTINATION include/${folder} COMPONENT libcorvane-dev)
endforeach()
install(FILES plugins/example/example.c plugins/exports.map docs/plugin-authors.md
    DESTINATION sdk/example COMPONENT libcorvane-dev)

# The version that the log's first line names; the newline is read away.
file(CONFIGURE OUTPUT version.txt CONTENT "@PROJECT_VERSION@\n" @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/version.txt DESTINATION . COMPONENT corvane)
