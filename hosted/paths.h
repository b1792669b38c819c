// Where the hosted platform keeps its sockets and files, below the root.
#pragma once

#include <sys/types.h>

#include <string>

namespace hosted {

constexpr char kContextFolder[] = "/var/run/corvane/ryn";
constexpr char kUserSocket[] = "/var/run/corvane/ryn-user.sock";
constexpr char kTraceSocket[] = "/var/run/corvane/rynd-trace.sock";
constexpr char kEventSocket[] = "/var/run/corvane/mgmtd-kprob.sock";
constexpr char kHostTree[] = "/var/lib/corvane/host";
constexpr char kActionsLog[] = "/var/lib/corvane/actions.log";
constexpr char kLogSocket[] = "/dev/log";
constexpr char kJournalSocket[] = "/run/systemd/journal/socket";

/// The absolute path `path` with the root in front of it.
std::string RootPath(const char *path);
/// The socket of kernel context `id`, 0 to 28, such as "$ROOT/var/run/corvane/ryn/kernel-00".
std::string KernelSocketPath(unsigned id);

/// Make the folder `path` and its missing parents; `path` itself gets `mode` when it is made here, its parents 0755.
/// 0 or an errno value.
int MakeFolders(const std::string &path, mode_t mode);

}  // namespace hosted
