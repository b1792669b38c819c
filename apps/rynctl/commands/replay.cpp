// The commands "replay", "why" and "why-not", which a program of its own does: it holds the daemon's correlators, and
// would make every other command slower.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "rynctl/commands/commands.h"

namespace rynctl {
namespace {

constexpr char kProgram[] = "rynreplay";

/// The folder that this program is in, with a slash behind; "" when that can't be found out.
std::string OwnFolder() {
  std::array<char, PATH_MAX> path;
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  const std::string own(path.data(), length < 0 ? 0 : static_cast<size_t>(length));
  return own.substr(0, own.rfind('/') + 1);
}

int Start(const char *command, const Words &words, Console &console) {
  Words all = {kProgram, command};
  all.insert(all.end(), words.begin(), words.end());
  std::vector<char *> arguments;
  for (std::string &word : all) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const std::string folder = OwnFolder();
  // As it is built, and as it is installed.
  for (const std::string &path : {folder + kProgram, folder + "../libexec/rynd/" + kProgram}) {
    execv(path.c_str(), arguments.data());
    if (errno == ENOENT) continue;
    console.Fail("cannot start " + path + ": " + std::strerror(errno));
    return kUsage;
  }
  console.Fail("'rynctl " + std::string(command) + "' needs the program rynreplay, which is not there: build the " +
               "target rynreplay, or install the package rynctl anew");
  return kUsage;
}

}  // namespace

int ReplayCommand(const Words &words, Console &console) {
  return Start("replay", words, console);
}

int WhyCommand(const Words &words, Console &console) {
  return Start("why", words, console);
}

int WhyNotCommand(const Words &words, Console &console) {
  return Start("why-not", words, console);
}

}  // namespace rynctl
