#include "testing/testRoot.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

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

}  // namespace testing_support
