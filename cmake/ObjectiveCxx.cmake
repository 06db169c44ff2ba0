# Sets CORVID_OBJCXX where the macOS sources can be compiled: on macOS, and elsewhere, for their
# tests, with clang against GNUstep, a second Foundation and AppKit. Says so when they cannot.

set(CORVID_OBJCXX OFF)
set(CMAKE_OBJCXX_STANDARD 20)
set(CMAKE_OBJCXX_STANDARD_REQUIRED ON)
set(CMAKE_OBJCXX_EXTENSIONS OFF)
set(CMAKE_OBJCXX_VISIBILITY_PRESET hidden)
add_library(corvid_objcxx INTERFACE)

if(APPLE)
  enable_language(OBJCXX)
  target_compile_options(corvid_objcxx INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-arc>)
  target_link_libraries(corvid_objcxx INTERFACE
    "-framework Foundation" "-framework AppKit" "-framework FinderSync")
  set(CORVID_OBJCXX ON)
  return()
endif()

find_program(GNUSTEP_CONFIG gnustep-config)
find_program(CORVID_CLANGXX NAMES clang++-19 clang++-18 clang++-17 clang++-16)
# The runtime's headers come with the GNU compiler; clang knows no path to them.
file(GLOB objc_headers "/usr/lib/gcc/*/*/include/objc/objc.h")
if(NOT GNUSTEP_CONFIG OR NOT CORVID_CLANGXX OR NOT objc_headers)
  message(STATUS "The tests of the macOS shell are left out: they need clang++ 16 or later and "
                 "GNUstep (libgnustep-gui-dev, gnustep-make, gobjc++)")
  return()
endif()

set(CMAKE_OBJCXX_COMPILER "${CORVID_CLANGXX}" CACHE FILEPATH "Objective-C++ compiler")
set(CMAKE_OBJCXX_COMPILER_LAUNCHER "${CMAKE_CXX_COMPILER_LAUNCHER}")
# Enabling it says for all languages how clang precompiles headers: the C++ compiler would write them
# under a name that it does not look for.
set(pch_extension "${CMAKE_PCH_EXTENSION}")
set(pch_prologue "${CMAKE_PCH_PROLOGUE}")
enable_language(OBJCXX)
set(CMAKE_PCH_EXTENSION "${pch_extension}")
set(CMAKE_PCH_PROLOGUE "${pch_prologue}")
list(GET objc_headers -1 objc_header)
cmake_path(GET objc_header PARENT_PATH objc_folder)
cmake_path(GET objc_folder PARENT_PATH objc_include)

execute_process(COMMAND "${GNUSTEP_CONFIG}" --objc-flags OUTPUT_VARIABLE gnustep_flags
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${GNUSTEP_CONFIG}" --gui-libs OUTPUT_VARIABLE gnustep_libraries
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(gnustep_flags)
separate_arguments(gnustep_libraries)
execute_process(COMMAND "${GNUSTEP_CONFIG}" --variable=GNUSTEP_SYSTEM_HEADERS
                OUTPUT_VARIABLE gnustep_headers OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
if(NOT gnustep_flags OR NOT gnustep_libraries OR NOT gnustep_headers)
  message(FATAL_ERROR "${GNUSTEP_CONFIG} names no flags or headers; it asks make, so install that")
endif()
# What describes GNUstep, without what describes how its own makefiles like to build.
list(FILTER gnustep_flags INCLUDE REGEX "^-D|^-fconstant|^-fobjc|^-fexceptions")
target_compile_options(corvid_objcxx INTERFACE
  "$<$<COMPILE_LANGUAGE:OBJCXX>:${gnustep_flags};-fobjc-runtime=gcc;-Wno-deprecated-declarations>")
# The first two folders stand for what Apple has and GNUstep lacks.
set(CORVID_GNUSTEP_INCLUDE
  "${PROJECT_SOURCE_DIR}/Tests/Support/GNUstep/include"
  "${PROJECT_SOURCE_DIR}/Tests/Support/CoreFoundation/include"
  "${objc_include}" "${gnustep_headers}")
target_include_directories(corvid_objcxx SYSTEM INTERFACE ${CORVID_GNUSTEP_INCLUDE})
target_link_libraries(corvid_objcxx INTERFACE ${gnustep_libraries})
set(CORVID_GNUSTEP_FLAGS ${gnustep_flags})
set(CORVID_OBJCXX ON)
