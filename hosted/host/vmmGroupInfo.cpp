// The group of a running virtual machine, vm/vmmGroupInfo. Stateless: any thread.
#include <cerrno>
#include <cstring>
#include <string>

#include "hosted/host/hostTree.h"
#include "hosted/host/sysinfo.h"

namespace hosted {

int GetVmmGroupInfo(const HSI_ParamList *instance, void *output, size_t size) {
  int64_t id = 0;
  if (const int error = IntegerParam(instance, &id); error != 0) return error;
  if (size != sizeof(HsiVmmGroupInfo)) return EINVAL;
  std::string name;
  if (const int error = ReadHostText("sysinfo/vm/vmmGroupInfo/" + std::to_string(id), &name); error != 0) return error;
  HsiVmmGroupInfo info{};
  if (name.size() >= sizeof info.displayName) return ERANGE;
  info.groupId = static_cast<uint32_t>(id);
  std::memcpy(info.displayName, name.data(), name.size());
  std::memcpy(output, &info, sizeof info);
  return 0;
}

}  // namespace hosted
