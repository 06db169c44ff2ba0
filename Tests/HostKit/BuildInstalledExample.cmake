# Installs HostKit into a fresh prefix and builds the examples against that copy alone:
# cmake -DBUILD=... -DSOURCE=... -DWORK=... [-DSANITIZE=...] -P BuildInstalledExample.cmake
file(REMOVE_RECURSE "${WORK}")
set(prefix "${WORK}/prefix")
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()
run("${CMAKE_COMMAND}" --install "${BUILD}" --component hostkit --prefix "${prefix}")
# A copy of the example, so that nothing of the project is found beside it.
file(COPY "${SOURCE}/examples/minimal_host.cpp" "${SOURCE}/examples/CMakeLists.txt"
     DESTINATION "${WORK}/examples")
set(flags "")
if(SANITIZE)
  set(flags "-fsanitize=${SANITIZE}")
endif()
run("${CMAKE_COMMAND}" -S "${WORK}/examples" -B "${WORK}/build" -G Ninja
    "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DCMAKE_CXX_FLAGS=${flags}")
run("${CMAKE_COMMAND}" --build "${WORK}/build")

# The example is there to be read in one go.
file(READ "${SOURCE}/examples/minimal_host.cpp" text)
string(REGEX MATCHALL "\n" lines "${text}")
list(LENGTH lines count)
if(count GREATER 30)
  message(FATAL_ERROR "examples/minimal_host.cpp has ${count} lines; it promises 30")
endif()
