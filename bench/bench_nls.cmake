# Message catalogues beside the C library's and gettext's.
corvane_add_bench(nls)
target_compile_definitions(nls_bench PRIVATE CORVANE_BUILD_DIR="${CMAKE_BINARY_DIR}")
add_dependencies(nls_bench corvanemsg)
