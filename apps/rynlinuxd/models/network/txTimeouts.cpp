#include "models/network/txTimeouts.h"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "sink/textFile.h"

namespace rynlinuxd {
namespace {

/// The names in a folder; none when it cannot be read, or has gone.
std::vector<std::string> NamesIn(const std::string &folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    names.push_back(at->path().filename());
  }
  return names;
}

}  // namespace

bool TxTimeouts::IsPhysical(const std::string &name) const {
  if (access((links_ + '/' + name + "/device").c_str(), F_OK) == 0) return true;
  return std::any_of(patterns_.begin(), patterns_.end(),
                     [&](const std::string &pattern) { return fnmatch(pattern.c_str(), name.c_str(), 0) == 0; });
}

uint64_t TxTimeouts::CountOf(const std::string &name) const {
  const std::string queues = links_ + '/' + name + "/queues";
  uint64_t sum = 0;
  for (const std::string &queue : NamesIn(queues)) {
    uint64_t timeouts = 0;
    const std::string file = std::string(queues).append("/").append(queue).append("/tx_timeout");
    if (queue.starts_with("tx-") && ReadNumber(file, &timeouts)) sum += timeouts;
  }
  return sum;
}

void TxTimeouts::Look() {
  std::map<std::string, Card> cards;
  for (const std::string &name : NamesIn(links_)) {
    if (!IsPhysical(name)) continue;
    const Card card{ReadLine(links_ + '/' + name + "/ifindex"), CountOf(name)};
    // Gone while it was read.
    if (card.index.empty()) continue;
    const auto known = cards_.find(name);
    const bool isSame = known != cards_.end() && known->second.index == card.index;
    const uint64_t before = isSame ? known->second.timeouts : hasLooked_ ? 0 : card.timeouts;
    // Fewer than before: some of its queues have gone.
    if (card.timeouts > before) {
      reporter_->Tell({"ryn.net.uplink.watchdog.timeout", "watchdog of uplink %s timed out", {Text(name)}});
    }
    cards[name] = card;
  }
  cards_ = std::move(cards);
  hasLooked_ = true;
}

}  // namespace rynlinuxd
