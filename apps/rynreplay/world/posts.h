// What the correlators of a replay post, and the management agent that takes it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "post/rateLimit.h"

namespace replay {

/// What became of one event: its record as composed, or the reason that it was dropped for and its name alone.
struct Post {
  std::string name;
  std::string dropReason;  ///< "": it was posted
  std::vector<std::byte> record;
  std::string settled;  ///< what had settled, such as "uplink hynic0: link down"; "" when nothing had
};

/// Whether the rate limit let an event pass.
struct RateRuling {
  std::string name;
  bool passes;
};

class Posts {
 public:
  /// What the rate limit ruled, in order among those of one name; in place of what was told before. It is shared by
  /// all agents, so that alone the recording knows who came first.
  void Tell(std::vector<RateRuling> rulings);
  bool PassesRateLimit(int64_t nowS, const std::string &name);

  /// Note one, with what the calling thread acts upon.
  void Add(Post post);
  /// What has been posted or dropped since the last call.
  std::vector<Post> Take();

  /// Whether the management agent takes events; it does from the start.
  void SetAccepting(bool accepts) { isAccepting_ = accepts; }
  /// It is sent one record. False when it does not take it.
  bool Deliver() {
    delivered_ += isAccepting_ ? 1 : 0;
    return isAccepting_;
  }
  uint64_t Delivered() const { return delivered_; }

 private:
  rynd::RateLimit limit_;
  std::vector<RateRuling> told_;
  std::vector<Post> posts_;
  bool isAccepting_ = true;
  uint64_t delivered_ = 0;
};

}  // namespace replay
