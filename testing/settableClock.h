// A wall clock that a test sets for the daemons that it starts.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/uniqueFd.h"
#include "testing/testRoot.h"

namespace testing_support {

/// The wall clock of the daemons that are started while it lives.
class SettableClock {
 public:
  explicit SettableClock(const std::string &path) {
    WriteFile(path, std::string(sizeof(int64_t), '\0'));
    const base::UniqueFd fd(open(path.c_str(), O_RDWR | O_CLOEXEC));
    offset_ = static_cast<std::atomic<int64_t> *>(
        mmap(nullptr, sizeof(int64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd.Get(), 0));
    setenv("RYND_CLOCK_FILE", path.c_str(), 1);
    setenv("LD_PRELOAD", RYND_SET_CLOCK, 1);
  }
  ~SettableClock() {
    unsetenv("LD_PRELOAD");
    unsetenv("RYND_CLOCK_FILE");
    munmap(offset_, sizeof(int64_t));
  }
  SettableClock(const SettableClock &) = delete;
  SettableClock &operator=(const SettableClock &) = delete;
  void Step(int64_t seconds) { *offset_ += seconds * 1'000'000'000; }

 private:
  std::atomic<int64_t> *offset_;
};

}  // namespace testing_support
