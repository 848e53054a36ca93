# libcorvane from the objects of all modules: shared and static for other programs, static for our own.
get_property(CORVANE_MODULES GLOBAL PROPERTY CORVANE_MODULES)

add_library(corvane_static STATIC)
set_target_properties(corvane_static PROPERTIES OUTPUT_NAME corvane)
target_link_libraries(corvane_static PUBLIC corvane_options)

add_library(corvane_shared SHARED)
set_target_properties(corvane_shared PROPERTIES OUTPUT_NAME corvane)
target_link_libraries(corvane_shared PRIVATE corvane_options)
# Only what is marked CORVANE_API leaves the library: not even the C++ runtime's own names.
set(library_names ${PROJECT_SOURCE_DIR}/cmake/libcorvane.map)
target_link_options(corvane_shared PRIVATE ${CORVANE_STATIC_RUNTIME} -Wl,--exclude-libs,ALL
    -Wl,--version-script=${library_names})
set_target_properties(corvane_shared PROPERTIES LINK_DEPENDS ${library_names})

foreach(module ${CORVANE_MODULES})
    target_sources(corvane_static PRIVATE $<TARGET_OBJECTS:${module}>)
    target_sources(corvane_shared PRIVATE $<TARGET_OBJECTS:${module}>)
endforeach()

add_executable(corvaned ${PROJECT_SOURCE_DIR}/mdcmain/main.cpp)
target_link_libraries(corvaned PRIVATE corvane_static)
# Plug-ins find the log here, and nothing else of ours.
set(daemon_exports ${PROJECT_SOURCE_DIR}/cmake/corvaned_exports.list)
target_link_options(corvaned PRIVATE ${CORVANE_STATIC_RUNTIME} -Wl,--dynamic-list=${daemon_exports})
set_target_properties(corvaned PROPERTIES LINK_DEPENDS ${daemon_exports})
install(TARGETS corvaned RUNTIME DESTINATION bin COMPONENT corvane)

# Other programs link from sdk: the daemon takes every library in lib for a plug-in.
install(TARGETS corvane_shared corvane_static
    LIBRARY DESTINATION sdk COMPONENT libcorvane-dev ARCHIVE DESTINATION sdk COMPONENT libcorvane-dev)
