#include "testing/testRoot.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace testing_support {

TestRoot::TestRoot() : path_("/tmp/rynd-test-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) {
    perror("mkdtemp /tmp/rynd-test-XXXXXX");
    abort();
  }
}

TestRoot::~TestRoot() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

bool WaitUntil(const std::function<bool()> &condition, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

const TestRoot &ProcessRoot() {
  static const TestRoot root;
  return root;
}

void WriteFile(const std::string &path, const std::string &text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

std::string ReadFile(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> Lines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string HostPath(const std::string &path) {
  return ProcessRoot() / ("/var/lib/corvane/host/" + path);
}

void PutHost(const std::string &path, const std::string &text) {
  WriteFile(HostPath(path), text);
}

void ClearHost() {
  std::filesystem::remove_all(ProcessRoot() / "/var/lib/corvane");
}

std::string TakeActions() {
  const std::string path = ProcessRoot() / "/var/lib/corvane/actions.log";
  std::string actions;
  for (const std::string &line : Lines(ReadFile(path))) actions += line.substr(line.find('\t') + 1) + ";";
  std::filesystem::remove(path);
  return actions;
}

}  // namespace testing_support
