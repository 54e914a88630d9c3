// The version header against the CMake project's version, which the build passes in.
#include <gtest/gtest.h>

#include <string>

#include "lawutil/lawutil.hpp"

TEST(Version, MatchesTheProject) {
    const std::string parts = std::to_string(LAWUTIL_VERSION_MAJOR) + "." +
                              std::to_string(LAWUTIL_VERSION_MINOR) + "." +
                              std::to_string(LAWUTIL_VERSION_PATCH);
    EXPECT_EQ(parts, LAWUTIL_PROJECT_VERSION);
    EXPECT_STREQ(LAWUTIL_VERSION_STRING, LAWUTIL_PROJECT_VERSION);
    EXPECT_EQ(LAWUTIL_VERSION,
              LAWUTIL_VERSION_MAJOR * 10000 + LAWUTIL_VERSION_MINOR * 100 + LAWUTIL_VERSION_PATCH);
}
