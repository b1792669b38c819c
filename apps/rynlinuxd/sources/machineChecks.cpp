// Errors of processors and memory: the kernel's trace records of them, in a trace instance of this program's own, so
// that nobody else's tracing is touched. Needs CAP_DAC_OVERRIDE where tracefs is root's alone.
#include <dirent.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "base/uniqueFd.h"
#include "hosted/log/log.h"
#include "loop/capabilities.h"
#include "loop/options.h"
#include "models/hardware/machineCheckModel.h"
#include "sink/textFile.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

constexpr char kTracing[] = "/sys/kernel/tracing";
constexpr char kMachineChecks[] = "/events/mce/mce_record", kMemoryErrors[] = "/events/ras/mc_event";
/// Of one processor: hundreds of errors between two readings.
constexpr char kBufferKib[] = "64";

/// Write `text` into the existing file at `path`. 0 or an errno value.
int WriteControl(const std::string &path, std::string_view text) {
  const base::UniqueFd file(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
  if (!file) return errno;
  return write(file.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : errno;
}

class MachineChecks : public Source {
 public:
  ~MachineChecks() override {
    if (folder_.empty()) return;
    Disable();
    pipes_.clear();
    const RaisedCapability reach(CAP_DAC_OVERRIDE);
    // Who has given up the right may not; what is left costs its buffers and is used again.
    rmdir(folder_.c_str());
  }
  const char *Name() const override { return "machine-checks"; }

  int Start(Host *host, int64_t /*nowNs*/, std::string *reason) override {
    const RaisedCapability reach(CAP_DAC_OVERRIDE);
    const Options &options = host->GetOptions();
    model_ = std::make_unique<MachineCheckModel>(host);
    if (const int error = ReadFormat(reason); error != 0) return error;
    const bool isTrial = options.dryRun || options.action == Options::Action::kCheck;
    const std::string folder = std::string(kTracing) + "/instances/rynlinuxd" + (isTrial ? "-trial" : "");
    *reason = folder + " cannot be made: it needs CAP_DAC_OVERRIDE";
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return errno;
    folder_ = folder;
    *reason = folder_ + " cannot be used: it needs CAP_DAC_OVERRIDE";
    return Enable(host);
  }

  void Ready(int fd, uint32_t /*events*/, int64_t /*nowNs*/) override {
    // Others are served in between.
    constexpr int kMostPages = 64;
    for (int i = 0; i < kMostPages; ++i) {
      const ssize_t got = read(fd, page_.data(), page_.size());
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return;
      model_->Take({page_.data(), static_cast<size_t>(got)});
    }
  }

  void OnStop() override { Disable(); }

 private:
  void Disable() {
    if (enable_ && write(enable_.Get(), "0", 1) != 1) hosted::Log("Cannot end tracing: %s", std::strerror(errno));
    enable_.Reset();
  }

  /// Where the kernel tells machine checks, memory errors are among them: they would count twice.
  int ReadFormat(std::string *reason) {
    constexpr size_t kMost = 65536;
    std::string format;
    event_ = kMachineChecks;
    int error = ReadTextFile(kTracing + event_ + "/format", kMost, &format);
    if (error == ENOENT) {
      event_ = kMemoryErrors;
      error = ReadTextFile(kTracing + event_ + "/format", kMost, &format);
    }
    *reason = error == ENOENT
                  ? "the kernel has no such trace records, or tracefs is not mounted at " + std::string(kTracing)
                  : std::string(kTracing) + " cannot be read: it needs CAP_DAC_OVERRIDE";
    if (error != 0) return error;
    *reason = kTracing + event_ + "/format is not understood";
    const bool isRead = event_ == kMachineChecks ? model_->ReadMachineChecks(format) : model_->ReadMemoryErrors(format);
    return isRead ? 0 : ENOTSUP;
  }

  /// Forget what an earlier run left, and begin. 0 or an errno value.
  int Enable(Host *host) {
    const std::string enable = folder_ + event_ + "/enable";
    for (const auto &[file, text] : {std::pair{enable, "0"},
                                     {folder_ + "/buffer_size_kb", kBufferKib},
                                     {folder_ + "/buffer_percent", "0"},
                                     {folder_ + "/trace", ""},
                                     {folder_ + "/tracing_on", "1"}}) {
      if (const int error = WriteControl(file, text); error != 0) return error;
    }
    page_.resize(static_cast<size_t>(sysconf(_SC_PAGESIZE)));
    if (const int error = OpenPipes(host); error != 0) return error;
    enable_.Reset(open(enable.c_str(), O_WRONLY | O_CLOEXEC));
    return enable_ && write(enable_.Get(), "1", 1) == 1 ? 0 : errno;
  }

  int OpenPipes(Host *host) {
    const std::string processors = folder_ + "/per_cpu";
    DIR *folder = opendir(processors.c_str());
    if (folder == nullptr) return errno;
    int error = 0;
    while (const dirent *entry = readdir(folder)) {
      if (error != 0 || entry->d_name[0] == '.') continue;
      const std::string path = processors + '/' + entry->d_name + "/trace_pipe_raw";
      base::UniqueFd pipe(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
      error = pipe ? host->Watch(pipe.Get(), EPOLLIN) : errno;
      pipes_.push_back(std::move(pipe));
    }
    closedir(folder);
    return error;
  }

  std::unique_ptr<MachineCheckModel> model_;
  std::string folder_, event_;
  std::vector<base::UniqueFd> pipes_;  ///< one a processor
  base::UniqueFd enable_;              ///< open, since the rights to open it are given up
  std::vector<std::byte> page_;
};

}  // namespace

std::unique_ptr<Source> MakeMachineChecks() {
  return std::make_unique<MachineChecks>();
}

}  // namespace rynlinuxd
