# Build rules shared by every folder: warnings and sanitizers, modules, tests, benchmarks, fuzz targets.
include(GNUInstallDirs)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CORVANE_PLUGIN_DIRECTORY ${CMAKE_BINARY_DIR}/plugins)
find_package(Threads REQUIRED)

find_program(CORVANE_CCACHE ccache)
if(CORVANE_CCACHE)
    # The sloppiness is what ccache asks for before it touches precompiled headers.
    set(CMAKE_C_COMPILER_LAUNCHER ${CORVANE_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CORVANE_CCACHE})
endif()

# Every target of ours takes its warnings, include root and sanitizers from this one.
add_library(corvane_options INTERFACE)
target_include_directories(corvane_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(corvane_options INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64
    CORVANE_VERSION="${PROJECT_VERSION}")
target_compile_options(corvane_options INTERFACE
    -Wall -Wextra -Wshadow -Wconversion -Wcast-align -Werror
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
    $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:Clang>>:-Wthread-safety>)
# g++ 12 takes inlined std::string concatenation for overlapping copies; and a text that is cut at its
# field's size is what we mean by snprintf.
target_compile_options(corvane_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict -Wno-format-truncation>)
target_link_libraries(corvane_options INTERFACE Threads::Threads ${CMAKE_DL_LIBS})
if(CORVANE_SANITIZE)
    target_compile_options(corvane_options INTERFACE
        -fsanitize=${CORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(corvane_options INTERFACE -fsanitize=${CORVANE_SANITIZE})
else()
    # What runs on other machines brings the C++ runtime along: no dependency beyond the C library.
    set(CORVANE_STATIC_RUNTIME -static-libstdc++ -static-libgcc)
endif()
if(CORVANE_FUZZ)
    target_compile_options(corvane_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Adds a folder that has a CMakeLists.txt.
function(corvane_add_folder folder)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/CMakeLists.txt)
        add_subdirectory(${folder})
    endif()
endfunction()

# corvane_module(lan header.cpp ...): the objects of one module, which libcorvane and the daemon gather.
function(corvane_module name)
    add_library(corvane_${name} OBJECT ${ARGN})
    target_link_libraries(corvane_${name} PUBLIC corvane_options)
    set_property(GLOBAL APPEND PROPERTY CORVANE_MODULES corvane_${name})
endfunction()

# corvane_add_test(lan header [LIBRARIES ...] [SOURCES ...] [LABELS ...]): tests/lan/header_test.cpp
# becomes lan_header_test, linked with all of our code, hidden names included.
function(corvane_add_test module name)
    cmake_parse_arguments(PARSE_ARGV 2 test "" "TIMEOUT" "LIBRARIES;SOURCES;LABELS")
    set(target ${module}_${name}_test)
    add_executable(${target} ${PROJECT_SOURCE_DIR}/tests/${module}/${name}_test.cpp ${test_SOURCES})
    if(CORVANE_SANITIZE MATCHES undefined)
        # The product is what is checked for undefined behaviour; in the tests' own code it costs a third
        # of the whole build.
        target_compile_options(${target} PRIVATE -fno-sanitize=undefined)
    endif()
    target_link_libraries(${target} PRIVATE corvane_static ${test_LIBRARIES} GTest::gmock GTest::gtest_main)
    target_precompile_headers(${target} REUSE_FROM corvane_test_headers)
    if(NOT test_TIMEOUT)
        set(test_TIMEOUT 300)
    endif()
    # One ctest entry a program: a few hundred processes fewer, and a test program may share a set-up.
    add_test(NAME ${module}.${name} COMMAND ${target})
    set_tests_properties(${module}.${name} PROPERTIES TIMEOUT ${test_TIMEOUT} LABELS "${module};${test_LABELS}")
endfunction()

# corvane_add_fuzz(lan_message): fuzz/lan_message.cpp. With the fuzz preset a libFuzzer program; otherwise
# a plain program that replays the kept corpus in fuzz/corpus/lan_message, run as a test.
function(corvane_add_fuzz name)
    cmake_parse_arguments(PARSE_ARGV 1 fuzz "" "" "LIBRARIES")
    set(corpus ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
    if(CORVANE_FUZZ)
        add_executable(fuzz_${name} ${PROJECT_SOURCE_DIR}/fuzz/${name}.cpp)
        target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
        target_link_libraries(fuzz_${name} PRIVATE corvane_static ${fuzz_LIBRARIES})
    elseif(CORVANE_TESTS)
        add_executable(fuzz_${name}_replay ${PROJECT_SOURCE_DIR}/fuzz/${name}.cpp
                       ${PROJECT_SOURCE_DIR}/fuzz/replay_main.cpp)
        target_link_libraries(fuzz_${name}_replay PRIVATE corvane_static ${fuzz_LIBRARIES})
        add_test(NAME fuzz.${name} COMMAND fuzz_${name}_replay ${corpus})
        set_tests_properties(fuzz.${name} PROPERTIES LABELS fuzz TIMEOUT 300)
    endif()
endfunction()

# corvane_add_bench(codeset): bench/codeset_bench.cpp, a Google Benchmark program.
function(corvane_add_bench name)
    cmake_parse_arguments(PARSE_ARGV 1 bench "" "" "LIBRARIES;SOURCES")
    add_executable(${name}_bench ${PROJECT_SOURCE_DIR}/bench/${name}_bench.cpp ${bench_SOURCES})
    target_link_libraries(${name}_bench PRIVATE corvane_static ${bench_LIBRARIES} benchmark::benchmark)
endfunction()
