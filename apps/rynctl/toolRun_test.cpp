// Not tests, but what they run the tool with.
#include "rynctl/toolRun.h"

#include <csignal>

#include <filesystem>
#include <sstream>

#include "rynctl/rynctl.h"
#include "testing/testRoot.h"

namespace rynctl {

ToolResult RunTool(const std::vector<std::string> &words) {
  std::vector<std::string> copies{"rynctl"};
  copies.insert(copies.end(), words.begin(), words.end());
  std::vector<char *> argv;
  for (std::string &word : copies) argv.push_back(word.data());
  std::ostringstream out;
  std::ostringstream err;
  const int status = Main(static_cast<int>(argv.size()), argv.data(), out, err);
  ToolResult result{status, out.str(), err.str()};
  const std::string root = "rynctl: root " + testing_support::ProcessRoot().Path() + "\n";
  if (result.err.starts_with(root)) result.err.erase(0, root.size());
  return result;
}

void CleanRoot() {
  std::filesystem::remove_all(testing_support::ProcessRoot() / "/var");
}

BackgroundTool::BackgroundTool(std::vector<std::string> words)
    : thread_([this, words = std::move(words)] { result_ = RunTool(words); }) {}

BackgroundTool::~BackgroundTool() {
  Result();
}

void BackgroundTool::Signal(int signal) {
  pthread_kill(thread_.native_handle(), signal);
}

const ToolResult &BackgroundTool::Result() {
  if (thread_.joinable()) thread_.join();
  return result_;
}

}  // namespace rynctl
