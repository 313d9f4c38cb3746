# What can be switched, and the flags that every target of ours is compiled with.

set(FERROX_SHARED_DEFAULT ${PROJECT_IS_TOP_LEVEL})
if(FERROX_SANITIZE)
  set(FERROX_SHARED_DEFAULT OFF)
endif()
if(BUILD_SHARED_LIBS)
  set(FERROX_SHARED_DEFAULT ON)
endif()
option(FERROX_BUILD_APPS "Build the ferrox command and the examples" ${PROJECT_IS_TOP_LEVEL})
option(FERROX_BUILD_TESTS "Build the tests" ${PROJECT_IS_TOP_LEVEL})
option(FERROX_BUILD_BENCHMARKS "Build the benchmarks" OFF)
option(FERROX_BUILD_FUZZERS "Build the fuzz targets (clang only)" OFF)
option(FERROX_BUILD_SHARED "Build the shared library beside the static one" ${FERROX_SHARED_DEFAULT})
option(FERROX_INSTALL "Install the library, and the command where it is built" ${PROJECT_IS_TOP_LEVEL})
option(FERROX_PACKAGES "Lay out Debian packages, for cpack (scripts/package)" OFF)
option(FERROX_WARNINGS_AS_ERRORS "Treat every warning as an error" OFF)
set(FERROX_SANITIZE "" CACHE STRING "Value of -fsanitize=, for example address,undefined")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

find_program(FERROX_CCACHE ccache)
if(FERROX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Without this sloppiness ccache passes by what uses a precompiled header; and by what another build folder, as that
  # of a project around these sources, has compiled already, unless it is told that the folder does not matter.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros
      CCACHE_NOHASHDIR=1 "${FERROX_CCACHE}")
endif()

# Carried by our own targets only, never by what a consumer compiles.
add_library(ferrox_flags INTERFACE)
target_compile_options(ferrox_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(ferrox_flags INTERFACE -Wthread-safety -Wreserved-identifier)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 sees overlapping copies in "literal" + std::string when it optimises (GCC bug 105329), and members of
  # a variant that moves as uninitialised though its index tells otherwise (clang and the sanitizers look too).
  target_compile_options(ferrox_flags INTERFACE -Wno-restrict -Wno-maybe-uninitialized)
endif()
if(FERROX_WARNINGS_AS_ERRORS)
  target_compile_options(ferrox_flags INTERFACE -Werror)
endif()
if(FERROX_SANITIZE)
  target_compile_options(ferrox_flags INTERFACE -fsanitize=${FERROX_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=undefined)
  target_link_options(ferrox_flags INTERFACE -fsanitize=${FERROX_SANITIZE})
endif()
