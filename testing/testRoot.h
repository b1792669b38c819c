// What all tests share: a private root folder, removed when it goes, its files, and waiting.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace testing_support {

/// The number that `name` has in the environment, or `otherwise`.
inline uint64_t EnvironmentNumber(const char *name, uint64_t otherwise) {
  const char *text = std::getenv(name);
  return text == nullptr || *text == '\0' ? otherwise : std::stoull(text);
}

/// Makes an empty folder with a short path in /tmp.
class TestRoot {
 public:
  TestRoot();
  ~TestRoot();
  TestRoot(const TestRoot &) = delete;
  TestRoot &operator=(const TestRoot &) = delete;

  const std::string &Path() const { return path_; }
  /// `path` (absolute) below the root.
  std::string operator/(const std::string &path) const { return path_ + path; }

 private:
  std::string path_;
};

/// The root that this test process runs under: CORVANE_ROOT names it before any test starts.
const TestRoot &ProcessRoot();

/// Wait until `condition` holds. False after `seconds`.
bool WaitUntil(const std::function<bool()> &condition, double seconds = 30);

/// Write `text` to `path`, making its folders.
void WriteFile(const std::string &path, const std::string &text);
/// The content of `path`; "" when it can't be read.
std::string ReadFile(const std::string &path);

/// The lines of `text`, without their ends.
std::vector<std::string> Lines(const std::string &text);

/// A path below the host tree of ProcessRoot().
std::string HostPath(const std::string &path);
void PutHost(const std::string &path, const std::string &text);
/// Remove all of the host tree, and what was done to the host.
void ClearHost();
/// What was done to the host since the last call, without the times, each action ended by ';'.
std::string TakeActions();

}  // namespace testing_support
