// The command line and the configuration file, which have the same names.
#pragma once

#include <string>
#include <vector>

namespace rynlinuxd {

struct Options {
  enum class Action { kRun, kCheck, kSmartd, kHelp, kVersion, kWrong };
  Action action = Action::kRun;
  bool dryRun = false;
  std::vector<std::string> sources{};  ///< names; none: all
  std::vector<std::string> nics{};     ///< patterns of links that count as physical, as for fnmatch
  int netlinkBuffer = 1 << 20;         ///< bytes
  int pollS = 60;                      ///< seconds between two looks at what must be polled
};

/// Read `argv`, and for what it does not say the file that it names, or /etc/rynd/linux.conf if there is one. What is
/// wrong makes the action kWrong and `error` a text that names it.
Options ParseOptions(int argc, char **argv, std::string *error);

/// Take the "name = value" lines of `text`; "" or what is wrong. For ParseOptions and its tests.
std::string ParseSettings(const std::string &text, Options *options);

/// The usage text.
const char *Usage();

}  // namespace rynlinuxd
