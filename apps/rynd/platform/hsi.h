// Sysinfo: named nodes of the kernel that are read and written by path, and the build signature check.
// Declarations only; a platform library provides them. Every operation may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

/// 0, or a failure that HYK_ReturnStatusToErrno turns into an errno value.
using HYK_ReturnStatus = uint32_t;
constexpr HYK_ReturnStatus kHykOk = 0;
constexpr HYK_ReturnStatus kHykNoMemory = 0xbad0014;

/// A list of string and integer parameters: a node's instance, or the values that are written to it.
struct HSI_ParamList;

constexpr size_t kHsiBuildDateSize = 21;   ///< "Mmm dd yyyy hh:mm:ss" with its NUL
constexpr size_t kHsiSystemUuidSize = 54;  ///< system/systemUuid: 16 binary bytes, then 38 of NUL-padded text

/// The reply of vm/vmmGroupInfo, whose instance is the group's id.
struct HsiVmmGroupInfo {
  uint32_t groupId;
  char displayName[3392];  ///< of the virtual machine, NUL-padded, at least one NUL
};
static_assert(sizeof(HsiVmmGroupInfo) == 3396);

/// Compare the running kernel's build with this program's. `kernelDate` (of `size` bytes) receives the kernel's build
/// date, `*ownDate` this program's (static text). 0 when they match.
int HSI_CheckSig(char *kernelDate, size_t size, const char **ownDate);

/// A new empty list, or null when there is no memory.
HSI_ParamList *HSI_ParamListCreate();
/// Append a copy of `text`.
HYK_ReturnStatus HSI_ParamListAddString(HSI_ParamList *list, const char *text);
HYK_ReturnStatus HSI_ParamListAddInt(HSI_ParamList *list, int64_t value);
/// Free a list; null does nothing.
void HSI_ParamListDestroy(HSI_ParamList *list);

/// Read the node `path` (such as "config/intOpts") of `instance` (null for none) into exactly `size` bytes of `output`.
HYK_ReturnStatus HSI_Get(const char *path, const HSI_ParamList *instance, void *output, size_t size);
/// Write `values` to the node `path` of `instance`.
HYK_ReturnStatus HSI_Set(const char *path, const HSI_ParamList *instance, const HSI_ParamList *values);

/// The errno value of a status; 0 for kHykOk.
int HYK_ReturnStatusToErrno(HYK_ReturnStatus status);
