#include "models/network/txTimeouts.h"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>

#include "sink/textFile.h"

namespace rynlinuxd {

bool TxTimeouts::IsPhysical(const std::string &name, bool *isKnown) const {
  const std::string link = links_ + '/' + name;
  if (access((link + "/device").c_str(), F_OK) == 0) return true;
  // A link that has gone, or has another name by now, says nothing; what is no folder is no link.
  *isKnown = errno == ENOTDIR || (errno == ENOENT && access(link.c_str(), F_OK) == 0);
  return std::any_of(patterns_.begin(), patterns_.end(),
                     [&](const std::string &pattern) { return fnmatch(pattern.c_str(), name.c_str(), 0) == 0; });
}

/// False when a queue could not be read.
bool TxTimeouts::ReadCounts(const std::string &name, Counts *counts) const {
  const std::string folder = links_ + '/' + name + "/queues";
  std::vector<std::string> queues;
  bool isWhole = ListFolder(folder, &queues) == 0;
  for (const std::string &queue : queues) {
    if (!queue.starts_with("tx-")) continue;
    uint64_t count = 0;
    if (ReadNumber(std::string(folder).append("/").append(queue).append("/tx_timeout"), &count)) {
      counts->emplace(queue, count);
    } else {
      isWhole = false;
    }
  }
  return isWhole;
}

void TxTimeouts::Look() {
  std::vector<std::string> names;
  bool isWhole = ListFolder(links_, &names) == 0;
  std::set<std::string> there;
  for (const std::string &name : names) {
    const std::string folder = links_ + '/' + name;
    bool isKnown = true;
    if (!IsPhysical(name, &isKnown)) {
      isWhole = isWhole && isKnown;
      continue;
    }
    const std::string index = ReadLine(folder + "/ifindex");
    Counts counts;
    isWhole = ReadCounts(name, &counts) && isWhole;
    // Gone while it was read, or another one has its name by now.
    if (index.empty() || ReadLine(folder + "/ifindex") != index) {
      isWhole = false;
      continue;
    }
    there.insert(index);
    Counts &known = cards_[index];
    bool isRisen = false;
    for (const auto &[queue, count] : counts) {
      const auto [before, isNew] = known.try_emplace(queue, hasLooked_ ? 0 : count);
      isRisen = isRisen || count > before->second;
      before->second = count;
    }
    if (isRisen) reporter_->Tell({"ryn.net.uplink.watchdog.timeout", "watchdog of uplink %s timed out", {Text(name)}});
  }
  if (!isWhole) return;
  // What could not be read may be there still, and what it has counted is past then.
  std::erase_if(cards_, [&](const auto &card) { return !there.contains(card.first); });
  hasLooked_ = true;
}

}  // namespace rynlinuxd
