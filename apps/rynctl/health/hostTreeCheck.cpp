// The host tree as "rynctl check" sees it: every file that has a known form is read and judged.
#include <fcntl.h>
#include <unistd.h>

#include <fnmatch.h>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string_view>
#include <system_error>

#include "hosted/paths.h"
#include "rynctl/health/healthChecks.h"

namespace rynctl {
namespace {

namespace fs = std::filesystem;

/// What the files of the tree that match `pattern` hold: this many integers, each from `least` to `most`.
struct FileForm {
  const char *pattern;  ///< below the tree; '*' is one path component
  size_t numbers;
  int64_t least, most;
};
constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
constexpr auto kForms = std::to_array<FileForm>({
    {"sysinfo/config/intOpts/Flight/Megabytes", 1, 0, 65536},
    {"sysinfo/config/intOpts/*/*", 1, std::numeric_limits<int64_t>::min(), kMost},
    {"sysinfo/system/ntpclock/rynReportInterval", 1, 0, kMost},
    {"sysinfo/system/pageRetire/threshold", 1, 0, kMost},
    {"sysinfo/system/pageRetire/MPNStatus/*", 2, 0, kMost},
    {"sysinfo/hardware/cpu/cpuInfo", 2, 1, kMost},
    {"sysinfo/sched/offline/enabled", 1, 0, 1},
    {"storage/devices/*/redundancy", 1, 0, 3},
    {"storage/devices/*/disk", 1, 0, 1},
});
constexpr size_t kMaxShown = 5;

/// "" when `text` suits `form`, else what is wrong with it.
std::string Judge(const FileForm &form, const std::string &text) {
  std::istringstream words(text);
  size_t count = 0;
  for (std::string word; words >> word; ++count) {
    int64_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size()) return "'" + word + "' is no integer";
    if (value < form.least || value > form.most) {
      return word + " is not from " + std::to_string(form.least) + " to " + std::to_string(form.most);
    }
  }
  if (count == form.numbers) return "";
  return std::to_string(count) + " numbers instead of " + std::to_string(form.numbers);
}

/// The faults of one kind, in one line.
class Faults {
 public:
  void Add(const std::string &text) {
    if (++count_ <= kMaxShown) text_ += (text_.empty() ? "" : "; ") + text;
  }
  HealthCheck Check(const char *subject, const char *fine, const char *action) const {
    if (count_ == 0) return {subject, HealthState::kOk, fine, ""};
    std::string text = text_;
    if (count_ > kMaxShown) text += "; and " + std::to_string(count_ - kMaxShown) + " more";
    return {subject, HealthState::kWarn, text, action};
  }

 private:
  size_t count_ = 0;
  std::string text_;
};

/// Read and judge one file of the tree, called `name` below it.
void CheckFile(const fs::path &path, const std::string &name, Faults *unreadable, Faults *wrong) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return unreadable->Add(path.string() + " (" + std::strerror(errno) + ")");
  close(fd);
  for (const FileForm &form : kForms) {
    if (fnmatch(form.pattern, name.c_str(), FNM_PATHNAME) != 0) continue;
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    if (const std::string fault = Judge(form, text.str()); !fault.empty()) wrong->Add(path.string() + ": " + fault);
    return;
  }
}

}  // namespace

std::vector<HealthCheck> CheckHostTree() {
  const fs::path tree = hosted::RootPath(hosted::kHostTree);
  std::error_code error;
  if (!fs::exists(tree, error)) {
    return {{"host tree", HealthState::kOk, "none at " + tree.string() + ": every setting has its default", ""}};
  }
  Faults unreadable;
  Faults wrong;
  const auto skip = fs::directory_options::none;
  for (fs::recursive_directory_iterator entry(tree, skip, error), end; !error && entry != end; entry.increment(error)) {
    std::error_code gone;
    if (entry->is_directory(gone)) {
      if (access(entry->path().c_str(), R_OK | X_OK) == 0) continue;
      unreadable.Add(entry->path().string() + " (" + std::strerror(errno) + ")");
      entry.disable_recursion_pending();
      continue;
    }
    if (!entry->is_regular_file(gone)) continue;
    CheckFile(entry->path(), entry->path().lexically_relative(tree), &unreadable, &wrong);
  }
  if (error) unreadable.Add(tree.string() + " (" + error.message() + ")");
  return {unreadable.Check("host tree", "every file can be read", "the daemon takes these reads for failed"),
          wrong.Check("settings", "every value has its form and range", "correct the value: rynd-host(5) lists them")};
}

}  // namespace rynctl
