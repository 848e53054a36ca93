# The whole daemon under load, beside a yardstick: run_daemon_bench measures and prints.
add_executable(echo_server echo_server.cpp)
target_link_libraries(echo_server PRIVATE corvane_options)

add_executable(load_generator load_generator.cpp load_generator_loop.cpp load_generator_messages.cpp)
target_link_libraries(load_generator PRIVATE corvane_options)

# The file system of the benchmark, loaded by the daemon like any other.
add_library(corvane_memory_plugin MODULE memory_plugin.cpp)
target_link_libraries(corvane_memory_plugin PRIVATE corvane_options)
target_link_options(corvane_memory_plugin PRIVATE ${CORVANE_STATIC_RUNTIME})
set_target_properties(corvane_memory_plugin PROPERTIES PREFIX ""
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench_plugins)

# Everything that run_daemon_bench starts; the private machine comes with the tests.
if(TARGET corvane_sandbox)
    add_custom_target(daemon_bench DEPENDS
        corvaned corvanestat corvane_catalogues corvane_sandbox echo_server load_generator
        corvane_memory_plugin)
endif()
