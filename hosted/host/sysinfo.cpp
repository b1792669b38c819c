// Sysinfo: parameter lists, the table of nodes, and their statuses. Stateless: any thread.
#include "hosted/host/sysinfo.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>

#include "hosted/host/actionsLog.h"
#include "hosted/host/hostNodes.h"

namespace hosted {
namespace {

constexpr auto kNodes = std::to_array<SysinfoNode>({
    {"config/intOpts", GetIntOption, SetIntOption},
    {"net/pNics/linkFlapping", nullptr, RecordSet},
    {"system/systemUuid", GetSystemUuid, nullptr},
    {"vm/vmmGroupInfo", GetVmmGroupInfo, nullptr},
    {"system/ntpclock/rynReportInterval", GetClockReportInterval, nullptr},
    {"system/pageRetire/threshold", GetRetireThreshold, nullptr},
    {"system/pageRetire/MPNStatus", GetPageStatus, nullptr},
    {"system/pageRetire/retireMPNs", nullptr, RecordSet},
    {"hardware/cpu/cpuInfo", GetCpuInfo, nullptr},
    {"hardware/cpu/cpuList", GetCpuList, nullptr},
    {"sched/offline/enabled", GetOfflineEnabled, nullptr},
    {"sched/pcpus/offline", nullptr, RecordSet},
});

/// The platform's own statuses hold an errno value in their lower half.
constexpr HYK_ReturnStatus kErrnoStatus = 0xbad10000;

HYK_ReturnStatus StatusOf(int error) {
  if (error == 0) return kHykOk;
  return error == ENOMEM ? kHykNoMemory : kErrnoStatus | static_cast<HYK_ReturnStatus>(error);
}

const SysinfoNode *FindNode(const char *path) {
  for (const SysinfoNode &node : kNodes) {
    if (path != nullptr && node.path == path) return &node;
  }
  return nullptr;
}

/// Run an operation of a node; a failure to allocate inside of it becomes its result.
template <typename Operation>
HYK_ReturnStatus Guard(const Operation &operation) try {
  return StatusOf(operation());
} catch (const std::bad_alloc &) {
  return kHykNoMemory;
}

template <typename Type, typename Value>
HYK_ReturnStatus AddParam(HSI_ParamList *list, Value value) {
  if (list == nullptr) return StatusOf(EINVAL);
  return Guard([&] {
    list->params.emplace_back(std::in_place_type<Type>, value);
    return 0;
  });
}

}  // namespace

int TextParams(const HSI_ParamList *list, std::initializer_list<std::string *> texts) {
  if (list == nullptr || list->params.size() != texts.size()) return EINVAL;
  auto param = list->params.begin();
  for (std::string *text : texts) {
    const auto *held = std::get_if<std::string>(&*param++);
    if (held == nullptr) return EINVAL;
    *text = *held;
  }
  return 0;
}

int IntegerParam(const HSI_ParamList *list, int64_t *value) {
  if (list == nullptr || list->params.size() != 1) return EINVAL;
  const int64_t *integer = std::get_if<int64_t>(&list->params.front());
  if (integer == nullptr) return EINVAL;
  *value = *integer;
  return 0;
}

int RecordSet(const SysinfoNode &node, const HSI_ParamList *instance, const HSI_ParamList *values) {
  std::vector<ActionField> fields;
  for (const HSI_ParamList *list : {instance, values}) {
    if (list == nullptr) continue;
    for (const auto &param : list->params) {
      if (const int64_t *integer = std::get_if<int64_t>(&param)) {
        fields.emplace_back(*integer);
      } else {
        fields.emplace_back(std::string_view(std::get<std::string>(param)));
      }
    }
  }
  return RecordAction(node.path, fields);
}

int PutInteger(int64_t value, void *output, size_t size) {
  if (size == sizeof(int64_t)) {
    std::memcpy(output, &value, sizeof value);
    return 0;
  }
  if (size != sizeof(int32_t)) return EINVAL;
  if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max()) return ERANGE;
  const auto narrow = static_cast<int32_t>(value);
  std::memcpy(output, &narrow, sizeof narrow);
  return 0;
}

}  // namespace hosted

HSI_ParamList *HSI_ParamListCreate() {
  return new (std::nothrow) HSI_ParamList;
}

HYK_ReturnStatus HSI_ParamListAddString(HSI_ParamList *list, const char *text) {
  if (text == nullptr) return hosted::StatusOf(EINVAL);
  return hosted::AddParam<std::string>(list, text);
}

HYK_ReturnStatus HSI_ParamListAddInt(HSI_ParamList *list, int64_t value) {
  return hosted::AddParam<int64_t>(list, value);
}

void HSI_ParamListDestroy(HSI_ParamList *list) {
  delete list;
}

HYK_ReturnStatus HSI_Get(const char *path, const HSI_ParamList *instance, void *output, size_t size) {
  const hosted::SysinfoNode *node = hosted::FindNode(path);
  if (node == nullptr || node->get == nullptr) return hosted::StatusOf(ENOENT);
  return hosted::Guard([&] { return node->get(instance, output, size); });
}

HYK_ReturnStatus HSI_Set(const char *path, const HSI_ParamList *instance, const HSI_ParamList *values) {
  const hosted::SysinfoNode *node = hosted::FindNode(path);
  if (node == nullptr || node->set == nullptr) return hosted::StatusOf(ENOENT);
  return hosted::Guard([&] { return node->set(*node, instance, values); });
}

int HYK_ReturnStatusToErrno(HYK_ReturnStatus status) {
  if (status == kHykOk) return 0;
  if (status == kHykNoMemory) return ENOMEM;
  const auto error = static_cast<int>(status & 0xffff);
  return (status & ~0xffffU) == hosted::kErrnoStatus && error != 0 ? error : EIO;
}
