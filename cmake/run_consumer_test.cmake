# Driven by the consumer_find_package test (cmake -P). Installs the current build into a
# private prefix, then builds tests/consumer against it twice, once through
# find_package and once through pkg-config, and runs each result.
#
# Inputs: LAWUTIL_BINARY_DIR CONSUMER_SOURCE_DIR CONSUMER_WORK_DIR CONFIG GENERATOR
#         MAKE_PROGRAM CXX_COMPILER LIBDIR

cmake_minimum_required(VERSION 3.25)

foreach(var LAWUTIL_BINARY_DIR CONSUMER_SOURCE_DIR CONSUMER_WORK_DIR GENERATOR CXX_COMPILER
            LIBDIR)
    if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
        message(FATAL_ERROR "run_consumer_test: ${var} not set")
    endif()
endforeach()

set(prefix "${CONSUMER_WORK_DIR}/prefix")
set(build "${CONSUMER_WORK_DIR}/build")

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        string(REPLACE ";" " " cmd "${ARGN}")
        message(FATAL_ERROR "consumer test: command failed (${rc}): ${cmd}")
    endif()
endfunction()

# A fresh prefix each run, so files from an older layout cannot make the test pass.
file(REMOVE_RECURSE "${CONSUMER_WORK_DIR}")
file(MAKE_DIRECTORY "${CONSUMER_WORK_DIR}")

set(config_args "")
if(CONFIG)
    set(config_args --config "${CONFIG}")
endif()
run("${CMAKE_COMMAND}" --install "${LAWUTIL_BINARY_DIR}" --prefix "${prefix}" ${config_args})
# The base headers live under the library's own directory, never as a top-level base/.
if(EXISTS "${prefix}/include/base" OR NOT EXISTS "${prefix}/include/lawutil/base/memory.hpp")
    message(FATAL_ERROR "consumer test: base headers not installed under include/lawutil/base")
endif()

# --- find_package ------------------------------------------------------------------
set(configure_args
    -S "${CONSUMER_SOURCE_DIR}" -B "${build}"
    -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
    "-DCMAKE_PREFIX_PATH=${prefix}"
    # Only the private prefix may satisfy find_package, never a system-wide install.
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
    -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF)
if(MAKE_PROGRAM)
    list(APPEND configure_args "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}")
endif()
if(CONFIG)
    list(APPEND configure_args "-DCMAKE_BUILD_TYPE=${CONFIG}")
endif()
run("${CMAKE_COMMAND}" ${configure_args})
run("${CMAKE_COMMAND}" --build "${build}" ${config_args})

set(exe "${build}/consumer")
if(NOT EXISTS "${exe}" AND CONFIG)
    set(exe "${build}/${CONFIG}/consumer")
endif()
run("${exe}")
message(STATUS "consumer test: find_package consumer ran")

# --- pkg-config ----------------------------------------------------------------------
find_program(PKG_CONFIG NAMES pkg-config pkgconf)
if(NOT PKG_CONFIG)
    message(STATUS "consumer test: pkg-config not found, pkg-config check skipped")
    return()
endif()

set(ENV{PKG_CONFIG_PATH} "${prefix}/${LIBDIR}/pkgconfig")
unset(ENV{PKG_CONFIG_LIBDIR})
execute_process(COMMAND "${PKG_CONFIG}" --cflags --libs lawutil
    RESULT_VARIABLE rc OUTPUT_VARIABLE pc_flags OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "consumer test: pkg-config does not know lawutil")
endif()
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
set(pc_exe "${CONSUMER_WORK_DIR}/consumer_pkgconfig")
run("${CXX_COMPILER}" -std=c++17 "${CONSUMER_SOURCE_DIR}/main.cpp"
    "${CONSUMER_SOURCE_DIR}/std_names.cpp" -o "${pc_exe}"
    ${pc_flags} "-Wl,-rpath,${prefix}/${LIBDIR}")
run("${pc_exe}")
message(STATUS "consumer test: pkg-config consumer ran")
