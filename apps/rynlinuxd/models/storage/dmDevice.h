// A multipath device as the device mapper describes it, in the texts of its status and its table. Stateless: any
// thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace rynlinuxd {

struct DmDevice {
  std::string number{};     ///< "253:0"
  std::string name{};       ///< for good where it has such a name: the WWID, else what the mapper calls it
  bool isQueueing = false;  ///< what is asked of it waits while no path works
  std::map<std::string, bool> isActive{};  ///< its paths, by number such as "8:16"
};

/// Read what `dmsetup status` and `dmsetup table` show behind the target's name "multipath". Nothing when they are not
/// understood.
std::optional<DmDevice> ParseDmDevice(std::string_view status, std::string_view table);

/// "mpath-" names the maker of the device; what is behind it is the WWID.
std::string DmName(const std::string &uuid, const std::string &name);

}  // namespace rynlinuxd
