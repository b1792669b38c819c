// The daemon's command line.
#pragma once

namespace rynd {

/// What the command line asks for. Initial thread.
struct Options {
  bool enableRyns = false;  ///< switch the kernel to asynchronous observations
  bool usageShown = false;  ///< the usage text has been printed: end with status 0
};

/// Parse the command line; anything but "--enableryns" and "-e" prints the usage text to standard output.
Options ParseOptions(int argc, char **argv);

}  // namespace rynd
