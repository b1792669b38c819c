// The tool as a function, so that tests run it in their own process.
#pragma once

#include <ostream>

namespace rynctl {

/// Run the tool on a command line, `argv[0]` its own name, printing to `out` and `err`. Returns the exit status: 0
/// done, 1 failed, 2 usage. SIGPIPE is ignored from then on.
int Main(int argc, char **argv, std::ostream &out, std::ostream &err);

}  // namespace rynctl
