#include "replay/recording/comparison.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "post/eventRecord.h"

namespace replay {
namespace {

std::string_view View(const std::vector<std::byte> &bytes) {
  return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

/// Equal in all that is not stamped.
bool IsEqual(const Post &replayed, const RecordedPost &recorded, bool knowsHost) {
  if (replayed.dropReason != recorded.dropReason) return false;
  const size_t start = knowsHost ? rynd::kEventUuidOffset : rynd::kEventTotalLengthOffset;
  const std::string_view a = View(replayed.record);
  const std::string_view b = recorded.record;
  return a.size() == b.size() && (a.size() <= start || a.substr(start) == b.substr(start));
}

}  // namespace

std::vector<Outcome> Compare(std::vector<Post> replayed, std::vector<RecordedPost> recorded, bool knowsHost) {
  std::vector<Outcome> outcomes;
  size_t next = 0;
  for (RecordedPost &was : recorded) {
    // Steps post a few events: the next one of that name, and those in front of it are new.
    size_t same = next;
    while (same < replayed.size() && replayed[same].name != was.name) ++same;
    if (same == replayed.size()) {
      outcomes.push_back({Outcome::Kind::kMissing, {}, std::move(was)});
      continue;
    }
    for (; next < same; ++next) outcomes.push_back({Outcome::Kind::kNew, std::move(replayed[next]), {}});
    const bool isEqual = IsEqual(replayed[next], was, knowsHost);
    outcomes.push_back(
        {isEqual ? Outcome::Kind::kEqual : Outcome::Kind::kChanged, std::move(replayed[next]), std::move(was)});
    ++next;
  }
  for (; next < replayed.size(); ++next) outcomes.push_back({Outcome::Kind::kNew, std::move(replayed[next]), {}});
  return outcomes;
}

}  // namespace replay
