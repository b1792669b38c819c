// What the correlators of a replay say of what they do: reasons, and lines of the daemon's log.
#pragma once

#include <string>

namespace replay {

class Talk {
 public:
  using Listener = void (*)(const std::string &text);
  /// Have reasons and log lines told from now on, as one line each without its end; null: to nobody, at no cost.
  void HearBy(Listener listener) { listener_ = listener; }
  bool IsHeard() const { return listener_ != nullptr; }
  void Say(const std::string &text) const {
    if (listener_ != nullptr) listener_(text);
  }

 private:
  Listener listener_ = nullptr;
};

/// Thrown where the daemon would have ended itself: what it says then. No standard exception, since agents survive
/// these.
struct Panicked {
  std::string text;
};

}  // namespace replay
