// A host on which anything happens at random: observations with arguments as the catalogue says, mostly about few
// names, and changes of what its look-ups find. The same seed gives the same.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "hosted/records/rawRecord.h"

namespace testing_support {

/// A file of the host tree that holds a text from now on, or is gone.
struct HostChange {
  std::string path;
  std::optional<std::string> text;
};

class RandomHost {
 public:
  /// `names` that most observations are about.
  explicit RandomHost(uint64_t seed, size_t names = 20) : random_(seed), names_(names) {}

  /// What look-ups find at first.
  std::vector<HostChange> Begin();
  /// The bytes of the next record; its time is `us`.
  std::string NextRecord(uint64_t us);
  HostChange NextChange();
  /// A number below `end`.
  uint64_t Draw(uint64_t end) { return random_() % end; }

 private:
  std::string Name() { return "n" + std::to_string(Draw(names_)); }
  hosted::RawArgument Argument(const std::string &name, const std::string &type);

  std::mt19937_64 random_;
  const size_t names_;
};

}  // namespace testing_support
