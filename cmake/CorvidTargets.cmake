# One target a layer, and the few rules that hold for all of them.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

# Warnings, sanitizers and the include root. Every target of the project links it.
add_library(corvid_options INTERFACE)
target_include_directories(corvid_options INTERFACE "${PROJECT_SOURCE_DIR}/Source")
target_compile_options(corvid_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Werror=return-type
  $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wnull-dereference -Wthread-safety
                                        -Werror=thread-safety>
  # std::stable_sort of libstdc++ 12 calls what it declares deprecated itself.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-deprecated-declarations>
  # A source of a unity build is no header, which this takes it for.
  $<$<AND:$<BOOL:${CMAKE_UNITY_BUILD}>,$<COMPILE_LANG_AND_ID:CXX,GNU>>:-Wno-subobject-linkage>)
target_link_libraries(corvid_options INTERFACE Threads::Threads)
add_library(corvid_sanitizers INTERFACE)
target_link_libraries(corvid_options INTERFACE corvid_sanitizers)
if(CORVID_SANITIZE)
  target_compile_options(corvid_sanitizers INTERFACE
    -fsanitize=${CORVID_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all
    # That check makes a pipe to see whether memory can be read, and tests take away descriptors.
    -fno-sanitize=vptr)
  target_link_options(corvid_sanitizers INTERFACE -fsanitize=${CORVID_SANITIZE})
endif()
if(CORVID_FUZZ)
  target_compile_options(corvid_sanitizers INTERFACE -fsanitize=fuzzer-no-link)
endif()

# corvid_add_layer(NAME SOURCES file... [LINKS target...] [PRIVATE_LINKS target...])
# A static library; LINKS are the layers below whose headers its own headers include.
function(corvid_add_layer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC corvid_options ${ARG_LINKS} PRIVATE ${ARG_PRIVATE_LINKS})
endfunction()

# Everything a user runs, without tests and benchmarks.
add_custom_target(programs)

# corvid_add_program(NAME SOURCES file... LINKS target...)
# A program in bin/, installed with the project.
function(corvid_add_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE corvid_options ${ARG_LINKS})
  add_dependencies(${name} corvid_resources)
  add_dependencies(programs ${name})
  install(TARGETS ${name} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT programs)
endfunction()

# corvid_leave_out_if_not_concurrent(TARGET TEST target...)
# The thread sanitizer has nothing to find in a program that links only the pure layers.
function(corvid_leave_out_if_not_concurrent target test)
  set(links ${ARGN})
  list(FILTER links EXCLUDE REGEX "^(corvid_(base|archive|strings|reference_strings)|nlohmann_json::.*)$")
  if(CORVID_SANITIZE STREQUAL "thread" AND NOT links)
    set_target_properties(${target} PROPERTIES EXCLUDE_FROM_ALL TRUE)
    set_tests_properties(${test} PROPERTIES DISABLED TRUE)
  endif()
endfunction()

# The headers that most tests include, compiled once for all of them.
function(corvid_precompile_test_headers)
  set(main "${PROJECT_BINARY_DIR}/TestHeaders.cpp")
  file(GENERATE OUTPUT "${main}" CONTENT "int main() {}\n")
  add_executable(corvid_test_headers EXCLUDE_FROM_ALL "${main}")
  target_precompile_headers(corvid_test_headers PRIVATE
    <gmock/gmock.h> <gtest/gtest.h> <nlohmann/json.hpp> <chrono> <filesystem> <functional> <memory>
    <optional> <string> <thread> <vector>)
  target_compile_options(corvid_test_headers PRIVATE ${CORVID_TEST_OPTIONS})
  target_link_libraries(corvid_test_headers PRIVATE corvid_options GTest::gmock GTest::gtest_main
    nlohmann_json::nlohmann_json)
endfunction()

# What is tested is optimised; the tests are compiled quickly instead.
set(CORVID_TEST_OPTIONS -O0 -g1)

# corvid_add_test(NAME SOURCES file... [LINKS target...] [LABELS label...])
# One GoogleTest program, run by ctest as a whole. Exit status 77 counts as skipped.
function(corvid_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_compile_options(${name} PRIVATE ${CORVID_TEST_OPTIONS})
  if(NOT ARG_SOURCES MATCHES "\\.mm") # Objective-C++ would need headers of its own.
    target_precompile_headers(${name} REUSE_FROM corvid_test_headers)
  endif()
  target_link_libraries(${name} PRIVATE corvid_options ${ARG_LINKS} GTest::gmock GTest::gtest_main)
  add_dependencies(${name} corvid_resources)
  target_compile_definitions(${name} PRIVATE
    CORVID_TEST_DATA="${PROJECT_SOURCE_DIR}/Tests/Data"
    CORVID_EXTRA_TEST_DATA="${CORVID_EXTRA_TEST_DATA}"
    CORVID_BIN_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300)
  corvid_leave_out_if_not_concurrent(${name} ${name} ${ARG_LINKS})
  if(ARG_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}")
  endif()
endfunction()

# corvid_add_fuzzer(NAME SOURCES file... LINKS target...)
# With CORVID_FUZZ a libFuzzer program; else a plain program that replays Fuzzers/corpus/NAME,
# which ctest runs.
function(corvid_add_fuzzer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  if(CORVID_FUZZ)
    add_executable(${name} ${ARG_SOURCES})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  else()
    add_executable(${name} ${ARG_SOURCES} "${PROJECT_SOURCE_DIR}/Fuzzers/ReplayMain.cpp")
    add_test(NAME replay_${name}
             COMMAND ${name} "${PROJECT_SOURCE_DIR}/Fuzzers/corpus/${name}")
    set_tests_properties(replay_${name} PROPERTIES LABELS fuzz)
    corvid_leave_out_if_not_concurrent(${name} replay_${name} ${ARG_LINKS})
  endif()
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/fuzzers")
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE corvid_options ${ARG_LINKS})
endfunction()

add_custom_target(benchmarks)

# corvid_add_benchmark(NAME SOURCES file... [LINKS target...])
# A program that prints one line of JSON for each figure (Benchmarks/Figure.h) and takes --quick.
# script/bench runs all that it finds in benchmarks/ of the build folder.
function(corvid_add_benchmark name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/benchmarks")
  add_dependencies(${name} corvid_resources)
  add_dependencies(benchmarks ${name} programs)
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE corvid_options ${ARG_LINKS}
    nlohmann_json::nlohmann_json)
  target_compile_definitions(${name} PRIVATE
    CORVID_BIN_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
endfunction()
