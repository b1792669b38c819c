// The group of a running virtual machine, vm/vmmGroupInfo. Stateless: any thread.
#include <cerrno>
#include <cstring>
#include <limits>
#include <string>

#include "hosted/host/hostTree.h"
#include "hosted/host/sysinfo.h"

namespace hosted {

int GetVmmGroupInfo(const HSI_ParamList *instance, void *output, size_t size) {
  int64_t id = 0;
  if (const int error = IntegerParam(instance, &id); error != 0) return error;
  if (size != sizeof(HsiVmmGroupInfo)) return EINVAL;
  // Half of the groups come as negative numbers, to whoever reads 32 bits as signed.
  const auto group = static_cast<uint32_t>(id);
  if (id < std::numeric_limits<int32_t>::min() || id > std::numeric_limits<uint32_t>::max()) return ENOENT;
  std::string name;
  const int error = ReadHostText("sysinfo/vm/vmmGroupInfo/" + std::to_string(group), &name);
  if (error != 0) return error;
  HsiVmmGroupInfo info{};
  if (name.size() >= sizeof info.displayName) return ERANGE;
  info.groupId = group;
  std::memcpy(info.displayName, name.data(), name.size());
  std::memcpy(output, &info, sizeof info);
  return 0;
}

}  // namespace hosted
