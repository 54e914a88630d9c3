# Small helpers shared by the top-level build. Kept here so CMakeLists.txt reads as a
# list of targets rather than a list of flags.

include_guard(GLOBAL)
include(CheckCXXCompilerFlag)

# Warnings apply to our own targets only: third-party headers and consumers are not
# ours to police.
function(lawutil_target_warnings target)
    get_target_property(_type ${target} TYPE)
    if(_type STREQUAL "INTERFACE_LIBRARY")
        return()
    endif()
    if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
        target_compile_options(${target} PRIVATE -Wall -Wextra)
        if(LAWUTIL_WERROR)
            target_compile_options(${target} PRIVATE -Werror)
        endif()
    endif()
endfunction()

# Creates library <name> from the given sources and headers.
#
# Shared (the default): a plain SHARED library.
#
# Static: the law library registers prototype objects from static initialisers, and a
# plain archive lets the linker drop exactly those translation units because nothing
# references them. So the archive is built as <name>_static and <name> becomes an
# INTERFACE wrapper that links it with WHOLE_ARCHIVE; everything that links <name>,
# in-tree or through the installed package, keeps every registration.
#
# A directory with headers but no .cpp yet yields a header-only INTERFACE library.
#
# Sets <name>_REAL_TARGET in the caller's scope to the target that actually compiles
# (or <name> itself), and <name>_INSTALL_TARGETS to what must be installed/exported.
function(lawutil_add_library name)
    cmake_parse_arguments(ARG "" "OUTPUT_NAME" "SOURCES;HEADERS" ${ARGN})
    if(NOT ARG_OUTPUT_NAME)
        set(ARG_OUTPUT_NAME ${name})
    endif()

    if(NOT ARG_SOURCES)
        add_library(${name} INTERFACE)
        if(ARG_HEADERS)
            target_sources(${name} INTERFACE FILE_SET HEADERS
                BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${ARG_HEADERS})
        endif()
        set(${name}_REAL_TARGET ${name} PARENT_SCOPE)
        set(${name}_INSTALL_TARGETS ${name} PARENT_SCOPE)
        return()
    endif()

    if(LAWUTIL_SHARED)
        set(real ${name})
        add_library(${real} SHARED)
        set_target_properties(${real} PROPERTIES
            VERSION ${PROJECT_VERSION}
            # Pre-1.0: every minor release may break the ABI.
            SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
            # An executable's RUNPATH does not cover the dependencies of its libraries, so
            # installed lawutil must find its sibling base library by itself.
            INSTALL_RPATH "$ORIGIN")
        set(install_targets ${real})
    else()
        set(real ${name}_static)
        add_library(${real} STATIC)
        add_library(${name} INTERFACE)
        # Named through the alias: export does not rewrite target names inside
        # $<LINK_LIBRARY>, and the namespaced name is valid both in-tree and installed.
        add_library(lawutil::${real} ALIAS ${real})
        target_link_libraries(${name} INTERFACE
            "$<LINK_LIBRARY:WHOLE_ARCHIVE,lawutil::${real}>")
        set(install_targets ${name} ${real})
    endif()

    target_sources(${real} PRIVATE ${ARG_SOURCES})
    if(ARG_HEADERS)
        target_sources(${real} PUBLIC FILE_SET HEADERS
            BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${ARG_HEADERS})
    else()
        # No headers yet: still let includes be written from the repository root.
        target_include_directories(${real} PUBLIC
            $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
            $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    endif()
    target_compile_features(${real} PUBLIC cxx_std_17)
    set_target_properties(${real} PROPERTIES
        OUTPUT_NAME ${ARG_OUTPUT_NAME}
        POSITION_INDEPENDENT_CODE ON)
    lawutil_target_warnings(${real})

    set(${name}_REAL_TARGET ${real} PARENT_SCOPE)
    set(${name}_INSTALL_TARGETS ${install_targets} PARENT_SCOPE)
endfunction()

# Turns "a/b.cpp" into "b" and prefixes it, so per-file executables get stable,
# collision-free target names.
function(lawutil_stem_target out prefix file)
    get_filename_component(stem ${file} NAME_WE)
    string(MAKE_C_IDENTIFIER "${stem}" stem)
    if(stem MATCHES "^${prefix}")
        set(${out} ${stem} PARENT_SCOPE)
    else()
        set(${out} ${prefix}${stem} PARENT_SCOPE)
    endif()
endfunction()
