# cpack -G DEB makes three packages: the controller, the client, and what programs are built against.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME corvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The corvane authors <authors@corvane.example>")
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL corvane corvane-client libcorvane-dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_LIBRARY_ARCHITECTURE)
    set(CORVANE_ARCHITECTURE_LIBRARIES /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
else()
    set(CORVANE_ARCHITECTURE_LIBRARIES /usr/lib)
endif()

# A description's first line is the summary.
set(CPACK_DEBIAN_CORVANE_PACKAGE_NAME corvane)
set(CPACK_DEBIAN_CORVANE_PACKAGE_SECTION admin)
set(CPACK_COMPONENT_CORVANE_DESCRIPTION "metadata controller for disks shared over a SAN
Tells client hosts which blocks of which disk hold a file, under a lease,
so that they read and write those blocks directly, past the file server.")
set(CPACK_DEBIAN_CORVANE_PACKAGE_SUGGESTS "corvane-client, bash-completion")
set(scripts ${CMAKE_CURRENT_SOURCE_DIR}/debian)
set(CPACK_DEBIAN_CORVANE_PACKAGE_CONTROL_EXTRA "${scripts}/postinst;${scripts}/prerm;${scripts}/postrm")

set(CPACK_DEBIAN_CORVANE-CLIENT_PACKAGE_NAME corvane-client)
set(CPACK_DEBIAN_CORVANE-CLIENT_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_CORVANE-CLIENT_DESCRIPTION "client of a corvane metadata controller
The corvane command: maps, reads and writes files on shared disks through
the controller that owns them. With a dissector of the protocol.")
set(CPACK_DEBIAN_CORVANE-CLIENT_PACKAGE_SUGGESTS "bash-completion, wireshark")

set(CPACK_DEBIAN_LIBCORVANE-DEV_PACKAGE_NAME libcorvane-dev)
set(CPACK_DEBIAN_LIBCORVANE-DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_LIBCORVANE-DEV_DESCRIPTION "headers and libraries of the corvane metadata controller
For authors of file-system plug-ins, of client software and of programs that
share the controller's settings. With a complete example plug-in.")
include(CPack)
