// Event records as the management agent receives them, read as far as they can be read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hosted/records/eventArguments.h"
#include "post/category.h"

namespace eventrecord {

/// What a record says. Parts that the record does not reach are empty or 0; the texts of the arguments are borrowed
/// from the record's bytes.
struct DecodedEvent {
  uint64_t microseconds = 0;  ///< since the epoch
  uint64_t sequence = 0;      ///< of the daemon's run, from 1
  std::string hostUuid;
  std::optional<rynd::Category> category;  ///< nothing for a name outside of the three namespaces
  std::string name;                        ///< such as "amb.problem.storage.apd.start"
  std::string text;                        ///< the rendered message; the bare arguments when there is none to render
  std::vector<hosted::EventArgument> arguments;
  std::vector<std::string> problems;  ///< what is wrong with the record, for people; empty when it is whole
};

/// Decode the `length` bytes at `bytes`, whatever they are. Reads nothing outside of them.
DecodedEvent DecodeEvent(const std::byte *bytes, size_t length);

/// Arguments as people write them: (5, "text", null), strings with C escapes; ? for one that can't be read.
std::string ArgumentList(const std::vector<hosted::EventArgument> &arguments);

}  // namespace eventrecord
