# find_package(corvane): corvane::corvane and corvane::client to link with, corvane::plugin for a file-system plug-in
# (a MODULE library without a prefix, to be installed into CORVANE_PLUGIN_DIRECTORY).
get_filename_component(_corvane_file "${CMAKE_CURRENT_LIST_FILE}" REALPATH)
get_filename_component(_corvane_root "${_corvane_file}/../../../.." ABSOLUTE)
set(CORVANE_PLUGIN_DIRECTORY "${_corvane_root}/lib")

foreach(_corvane_name corvane client)
    if(NOT TARGET corvane::${_corvane_name})
        set(_corvane_library libcorvane.so)
        if(_corvane_name STREQUAL client)
            set(_corvane_library libcorvane_client.so)
        endif()
        add_library(corvane::${_corvane_name} SHARED IMPORTED)
        set_target_properties(corvane::${_corvane_name} PROPERTIES
            IMPORTED_LOCATION "${_corvane_root}/sdk/${_corvane_library}"
            INTERFACE_INCLUDE_DIRECTORIES "${_corvane_root}/include")
    endif()
endforeach()

# A plug-in exports its FS_ functions and nothing else; the daemon gives it the log when it loads it.
if(NOT TARGET corvane::plugin)
    add_library(corvane::plugin INTERFACE IMPORTED)
    set_target_properties(corvane::plugin PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES "${_corvane_root}/include"
        INTERFACE_LINK_OPTIONS "-Wl,--version-script=${_corvane_root}/sdk/example/exports.map")
endif()

unset(_corvane_file)
unset(_corvane_root)
unset(_corvane_name)
unset(_corvane_library)
set(corvane_FOUND TRUE)
