// The library's version.  It is the version of the CMake project (project(VERSION) in
// CMakeLists.txt), written out here so that a header alone tells it; a test keeps the two
// equal.  Versions follow semantic versioning once 1.0.0 is out; before that a minor
// version may change the interface.
#pragma once

#define LAWUTIL_VERSION_MAJOR 0
#define LAWUTIL_VERSION_MINOR 1
#define LAWUTIL_VERSION_PATCH 0

// "MAJOR.MINOR.PATCH".
#define LAWUTIL_VERSION_STRING "0.1.0"

// One number that orders versions, for `#if LAWUTIL_VERSION >= 100` (0.1.0 is 100).
#define LAWUTIL_VERSION \
    (LAWUTIL_VERSION_MAJOR * 10000 + LAWUTIL_VERSION_MINOR * 100 + LAWUTIL_VERSION_PATCH)
