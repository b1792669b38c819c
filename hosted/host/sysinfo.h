// Sysinfo's nodes: how they are found and what one is. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/hsi.h"

struct HSI_ParamList {
  std::vector<std::variant<std::string, int64_t>> params;
};

namespace hosted {

/// One node. `get` reads the node of `instance` (null for none) into exactly `size` bytes of `output`; `set` writes
/// `values` (null for none). Both return 0 or an errno value; either is null when the node can't be read or written.
struct SysinfoNode {
  std::string_view path;
  int (*get)(const HSI_ParamList *instance, void *output, size_t size);
  int (*set)(const SysinfoNode &node, const HSI_ParamList *instance, const HSI_ParamList *values);
};

/// The parameters of `list`, which must be as many texts. 0 or EINVAL.
int TextParams(const HSI_ParamList *list, std::initializer_list<std::string *> texts);
/// The one parameter of `list`, which must be an integer. 0 or EINVAL.
int IntegerParam(const HSI_ParamList *list, int64_t *value);
/// Store `value` as an integer of `size` bytes, 4 or 8. 0, EINVAL for another size, ERANGE when it does not fit.
int PutInteger(int64_t value, void *output, size_t size);

/// The `set` of a node that is an action on the kernel: record it with its instance and its values.
int RecordSet(const SysinfoNode &node, const HSI_ParamList *instance, const HSI_ParamList *values);
int GetIntOption(const HSI_ParamList *instance, void *output, size_t size);
int SetIntOption(const SysinfoNode &node, const HSI_ParamList *instance, const HSI_ParamList *values);
int GetVmmGroupInfo(const HSI_ParamList *instance, void *output, size_t size);
int GetSystemUuid(const HSI_ParamList *instance, void *output, size_t size);

}  // namespace hosted
