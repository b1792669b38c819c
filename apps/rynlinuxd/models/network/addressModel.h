// Addresses of this host, and those that another host has too. One thread; told the time in nanoseconds of the
// monotonic clock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "models/kernelLog.h"
#include "models/netlinkBytes.h"
#include "sink/report.h"

namespace rynlinuxd {

/// What one message says of one address.
struct AddressFacts {
  int32_t index = 0;  ///< of its link
  bool isGone = false;
  bool isDuplicate = false;  ///< the kernel does not use it, since it met another host that does
  std::string address{};     ///< of IPv6
};

struct AddressDatagram {
  std::vector<AddressFacts> addresses{};
  DatagramEnd end{};
};

/// Read every message of one datagram; addresses of other families are left out.
AddressDatagram ParseAddressDatagram(std::span<const std::byte> bytes);
/// A request for all addresses of IPv6.
std::vector<std::byte> AddressDumpRequest(uint32_t sequence);

/// The kernel's message says of which address, its log of whom; each may come first.
class AddressModel {
 public:
  static constexpr int64_t kOwnerNs = 1'000'000'000;  ///< for so long an owner is waited for, or remembered
  static constexpr size_t kMostLines = 64;

  explicit AddressModel(Reporter *reporter) : reporter_(reporter) {}
  /// `link` is the name of the address's link. With `isBaseline` it was so before anybody looked.
  void Change(const AddressFacts &facts, const std::string &link, bool isBaseline, int64_t nowNs);
  void TakeLine(const DuplicateLine &line, int64_t nowNs);
  /// When to call OnDue(); INT64_MAX: not at all.
  int64_t Due() const;
  void OnDue(int64_t nowNs);
  /// Tell every state again.
  void Retell();
  /// Those that are known to be duplicates, by index of their link and address: what a reading of all does not name has
  /// gone.
  std::vector<AddressFacts> Duplicates() const;

 private:
  struct Duplicate {
    std::string link{}, owner{};
    bool isBaseline = false;
    int64_t dueNs = INT64_MAX;  ///< when it is told without an owner
  };
  using Key = std::pair<int32_t, std::string>;
  void Tell(const Key &key, const Duplicate &duplicate);
  void TellEnd(const Key &key, const Duplicate &duplicate);

  struct Line {
    DuplicateLine line;
    int64_t atNs;
  };
  Reporter *const reporter_;
  std::map<Key, Duplicate> duplicates_;
  std::vector<Line> lines_;
};

}  // namespace rynlinuxd
