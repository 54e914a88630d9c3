// lawtool: the command-line front end of the law library.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/memory.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/main_law.hpp"
#include "tools/lawtool/lawtool.hpp"

int main(int argc, char** argv) {
    // The C locale is never left (no setlocale call): numbers are read and printed with
    // a decimal point whatever the user's locale says.
    std::vector<std::string> args(argv + 1, argv + argc);
    long allocations_before = vorx_live_allocations();
    initialize_law();
    int status = lawtool_run(args, tool_streams{stdout, stderr});
    terminate_law();

    // With LAWTOOL_CHECK_LEAKS=1 (the tests set it) every law and every tracked block
    // the run made must be gone by now.
    const char* check = std::getenv("LAWTOOL_CHECK_LEAKS");
    if (check && std::strcmp(check, "1") == 0) {
        int laws = law::how_many_laws.load();
        long blocks = vorx_live_allocations() - allocations_before;
        if (laws != 0 || blocks != 0) {
            std::fprintf(stderr, "lawtool: leak: %d laws and %ld tracked blocks still live\n", laws,
                         blocks);
            return status_leak;
        }
    }
    // A full disk or a closed pipe must not pass for success.
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        std::fprintf(stderr, "lawtool: cannot write the output: %s\n", std::strerror(errno));
        return status == status_ok ? status_failed : status;
    }
    return status;
}
