// The advanced integer options, config/intOpts. Any thread.
#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <mutex>

#include "hosted/host/hostTree.h"
#include "hosted/host/sysinfo.h"

namespace hosted {
namespace {

/// What an option is while its file is missing.
struct OptionDefault {
  std::string_view group, name;
  int64_t value;
};

constexpr auto kDefaults = std::to_array<OptionDefault>({
    {"Misc", "RynAsyncEnable", 0},
    {"PageRetire", "PageErrorCorrThreshold", 2},
    {"PageRetire", "PageErrorCorrPeriod", 30},
    {"PageRetire", "ThresholdInterval", 10},
    {"PageRetire", "ApeiLoggingEnabled", 0},
    {"Cpu", "CPUOfflineThreshold", 0},
    {"Net", "LinkFlappingThreshold", 0},
});
static_assert(kDefaults.size() == 7);

std::string OptionPath(const std::string &group, const std::string &name) {
  return "sysinfo/config/intOpts/" + HostComponent(group.c_str()) + "/" + HostComponent(name.c_str());
}

/// 0, or ENOENT for an option that has none.
int DefaultOf(std::string_view group, std::string_view name, int64_t *value) {
  for (const OptionDefault &option : kDefaults) {
    if (option.group != group || option.name != name) continue;
    *value = option.value;
    return 0;
  }
  return ENOENT;
}

}  // namespace

int GetIntOption(const HSI_ParamList *instance, void *output, size_t size) {
  std::string group, name;
  if (const int error = TextParams(instance, {&group, &name}); error != 0) return error;
  using Limits = std::numeric_limits<int64_t>;
  int64_t value = 0;
  int error = ReadHostInteger(OptionPath(group, name), Limits::min(), Limits::max(), &value);
  if (error == ENOENT) error = DefaultOf(group, name, &value);
  return error != 0 ? error : PutInteger(value, output, size);
}

int SetIntOption(const SysinfoNode &node, const HSI_ParamList *instance, const HSI_ParamList *values) {
  std::string group, name;
  int64_t value = 0;
  if (const int error = TextParams(instance, {&group, &name}); error != 0) return error;
  if (const int error = IntegerParam(values, &value); error != 0) return error;
  // Guards nothing but the order: the last action of the record is the value that stands. The record's nests in it.
  static std::mutex order;
  const std::lock_guard lock(order);
  if (const int error = WriteHostText(OptionPath(group, name), std::to_string(value)); error != 0) return error;
  return RecordSet(node, instance, values);
}

}  // namespace hosted
