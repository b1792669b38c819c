// Advanced options, read as sysinfo nodes. Any thread.
#include "platform/hykCtlAdv.h"

#include <limits>
#include <utility>

#include "platform/hostMgmt.h"
#include "platform/hykCtlUtil.h"

namespace HykCtl::Adv {

AdvancedIntegerOptionImpl::AdvancedIntegerOptionImpl(std::vector<std::string> path, std::string name)
    : path_(std::move(path)), name_(std::move(name)) {}

uint32_t AdvancedIntegerOptionImpl::GetValue() const {
  Util::Sysinfo option("config/intOpts");
  for (const std::string &group : path_) option.AddInstancePath(group.c_str());
  option.AddInstancePath(name_.c_str());
  int64_t value = 0;
  option.Get(&value, sizeof value);
  if (value < 0 || value > std::numeric_limits<uint32_t>::max()) {
    throw HostMgmt::Lib::HostMgmtException("the option " + name_ + " is out of range: " + std::to_string(value));
  }
  return static_cast<uint32_t>(value);
}

}  // namespace HykCtl::Adv
