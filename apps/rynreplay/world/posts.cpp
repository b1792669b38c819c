// Stands in for post/rateLimit.cpp and post/mgmtdSocket.cpp, and stamps events with simulated time.
#include "replay/world/posts.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/basics/cause.h"
#include "core/basics/reason.h"
#include "platform/system.h"
#include "post/mgmtdSocket.h"
#include "replay/world/world.h"

namespace replay {

void Posts::Tell(std::vector<RateRuling> rulings) {
  told_ = std::move(rulings);
}

bool Posts::PassesRateLimit(int64_t nowS, const std::string &name) {
  const bool passes = limit_.Pass(nowS);
  const auto told = std::ranges::find(told_, name, &RateRuling::name);
  if (told == told_.end()) return passes;
  const bool ruled = told->passes;
  told_.erase(told);
  return ruled;
}

void Posts::Add(Post post) {
  if (rynd::currentCause.timer != nullptr) post.settled = rynd::currentCause.timer;
  posts_.push_back(std::move(post));
}

std::vector<Post> Posts::Take() {
  return std::exchange(posts_, {});
}

}  // namespace replay

namespace rynd {

bool PassesRateLimit(int64_t now, const char *eventNamespace, const char *shortId) {
  const std::string name = std::string(eventNamespace) + shortId;
  if (replay::TheWorld().posts.PassesRateLimit(now, name)) return true;
  Reason("the rate limit drops %s: %u events in %ld seconds have passed", name.c_str(), RateLimit::kMaxEvents,
         RateLimit::kWindowS);
  return false;
}

int SendToMgmtd(const std::byte * /*record*/, size_t /*length*/) {
  return replay::TheWorld().posts.Deliver() ? 0 : -1;
}

}  // namespace rynd

void Hyk_StampEvent(std::byte header[kHykEventHeaderSize]) {
  static uint64_t sequence = 0;
  const uint64_t fields[] = {replay::TheWorld().clock.WallUs(), ++sequence};
  std::memcpy(header, fields, sizeof fields);
}
