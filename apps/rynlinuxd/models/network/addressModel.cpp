#include "models/network/addressModel.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

namespace rynlinuxd {
namespace {

/// The kernel's log and this program need not write an address alike.
bool IsSame(const std::string &left, const std::string &right) {
  in6_addr one{}, other{};
  return inet_pton(AF_INET6, left.c_str(), &one) == 1 && inet_pton(AF_INET6, right.c_str(), &other) == 1 &&
         std::memcmp(&one, &other, sizeof one) == 0;
}

bool ParseAddress(std::span<const std::byte> bytes, AddressFacts *facts) {
  ifaddrmsg header;
  if (!Load(bytes, &header) || header.ifa_family != AF_INET6) return false;
  facts->index = static_cast<int32_t>(header.ifa_index);
  uint32_t flags = header.ifa_flags;
  ForEachAttribute(bytes.subspan(Aligned(sizeof header)), [&](int type, std::span<const std::byte> value) {
    if (type == IFA_FLAGS) Load(value, &flags);
    in6_addr address{};
    std::array<char, INET6_ADDRSTRLEN> text;
    if (type == IFA_ADDRESS && Load(value, &address) &&
        inet_ntop(AF_INET6, &address, text.data(), text.size()) != nullptr)
      facts->address = text.data();
  });
  facts->isDuplicate = (flags & IFA_F_DADFAILED) != 0;
  return !facts->address.empty();
}

}  // namespace

AddressDatagram ParseAddressDatagram(std::span<const std::byte> bytes) {
  AddressDatagram datagram;
  datagram.end = ForEachMessage(bytes, [&](uint16_t type, std::span<const std::byte> payload) {
    if (type != RTM_NEWADDR && type != RTM_DELADDR) return;
    AddressFacts facts;
    facts.isGone = type == RTM_DELADDR;
    if (ParseAddress(payload, &facts)) datagram.addresses.push_back(std::move(facts));
  });
  return datagram;
}

std::vector<std::byte> AddressDumpRequest(uint32_t sequence) {
  ifaddrmsg all{};
  all.ifa_family = AF_INET6;
  return DumpRequest(RTM_GETADDR, sequence, all);
}

void AddressModel::Change(const AddressFacts &facts, const std::string &link, bool isBaseline, int64_t nowNs) {
  const Key key(facts.index, facts.address);
  const auto known = duplicates_.find(key);
  if (!facts.isDuplicate || facts.isGone) {
    if (known == duplicates_.end()) return;
    TellEnd(key, known->second);
    duplicates_.erase(known);
    return;
  }
  if (known != duplicates_.end()) return;
  Duplicate &duplicate = duplicates_[key];
  duplicate.link = link;
  duplicate.isBaseline = isBaseline;
  const auto line = std::find_if(lines_.begin(), lines_.end(), [&](const Line &each) {
    return each.line.link == link && IsSame(each.line.address, facts.address);
  });
  if (line != lines_.end()) {
    duplicate.owner = line->line.owner;
    lines_.erase(line);
  } else if (!isBaseline) {
    duplicate.dueNs = nowNs + kOwnerNs;
    return;
  }
  Tell(key, duplicate);
}

void AddressModel::TakeLine(const DuplicateLine &line, int64_t nowNs) {
  for (auto &[key, duplicate] : duplicates_) {
    if (duplicate.dueNs == INT64_MAX || duplicate.link != line.link || !IsSame(key.second, line.address)) continue;
    duplicate.owner = line.owner;
    duplicate.dueNs = INT64_MAX;
    return Tell(key, duplicate);
  }
  // Of another network namespace, or in front of its message.
  std::erase_if(lines_, [&](const Line &each) { return nowNs - each.atNs > kOwnerNs; });
  if (lines_.size() < kMostLines) lines_.push_back({line, nowNs});
}

int64_t AddressModel::Due() const {
  int64_t due = INT64_MAX;
  for (const auto &[key, duplicate] : duplicates_) due = std::min(due, duplicate.dueNs);
  return due;
}

void AddressModel::OnDue(int64_t nowNs) {
  for (auto &[key, duplicate] : duplicates_) {
    if (duplicate.dueNs > nowNs) continue;
    duplicate.dueNs = INT64_MAX;
    Tell(key, duplicate);
  }
}

void AddressModel::Retell() {
  for (const auto &[key, duplicate] : duplicates_) {
    if (duplicate.dueNs == INT64_MAX) Tell(key, duplicate);
  }
}

std::vector<AddressFacts> AddressModel::Duplicates() const {
  std::vector<AddressFacts> all;
  for (const auto &[key, duplicate] : duplicates_) all.push_back({key.first, false, true, key.second});
  return all;
}

void AddressModel::Tell(const Key &key, const Duplicate &duplicate) {
  const auto &[link, owner, isBaseline, dueNs] = duplicate;
  // Who has it is unknown: an event that names nobody would not say what it is to say.
  Report report = owner.empty() ? External(Severity::kError, "address " + key.second,
                                           "another host has it too: " + link + " does not use it")
                                : Report{"ryn.net.hyknic.ip.duplicate",
                                         "duplicate address %s on %s, owner %s",
                                         {Text(key.second), Text(link), Text(owner)}};
  report.key = "duplicate " + link + ' ' + key.second;
  report.state = "duplicate";
  report.isOpen = true;
  report.isBaseline = isBaseline;
  reporter_->Tell(std::move(report));
}

void AddressModel::TellEnd(const Key &key, const Duplicate &duplicate) {
  // Never told.
  if (duplicate.dueNs != INT64_MAX) return;
  Report report = External(Severity::kInfo, "address " + key.second,
                           "it is no longer that of another host, or no longer one of " + duplicate.link);
  report.key = "duplicate " + duplicate.link + ' ' + key.second;
  reporter_->Tell(std::move(report));
}

}  // namespace rynlinuxd
