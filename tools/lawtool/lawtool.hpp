// lawtool: the command-line front end of the law library.  Declarations shared by its
// source files: the streams a command writes to, the exit statuses and the two kinds of
// failure that the tool raises itself (the library's own errors arrive as vorx_exception).
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

// Where a command writes its results (out) and its diagnostics (err).  The demo points
// both at stdout so its whole transcript reads in order.
struct tool_streams {
    FILE* out;
    FILE* err;
};

// Exit statuses of the tool.
enum tool_status {
    status_ok = 0,
    status_failed = 1,  // a law that does not read, or an error while evaluating
    status_usage = 2,   // a command line that does not make sense
    status_leak = 3     // LAWTOOL_CHECK_LEAKS=1 found live laws or allocations at exit
};

// A command line that does not make sense.  The message is printed with the command's
// usage; the exit status is 2.
class usage_error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A law text that does not read.  The message is complete (text and caret included);
// the exit status is 1.
class read_error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Runs one command line (without the program name) and answers its exit status.  Every
// failure is reported on io.err; nothing is thrown.  The library must be started.
int lawtool_run(const std::vector<std::string>& args, const tool_streams& io);

// The guided showcase behind `lawtool demo` and `make demo`.
int run_demo(const tool_streams& io);
