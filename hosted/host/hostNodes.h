// How sysinfo's nodes of the host's clock, processors and memory pages are read; see SysinfoNode::get. Any thread.
#pragma once

#include <cstddef>

#include "hosted/host/sysinfo.h"

namespace hosted {

int GetClockReportInterval(const HSI_ParamList *instance, void *output, size_t size);
int GetRetireThreshold(const HSI_ParamList *instance, void *output, size_t size);
int GetPageStatus(const HSI_ParamList *instance, void *output, size_t size);
int GetCpuInfo(const HSI_ParamList *instance, void *output, size_t size);
int GetCpuList(const HSI_ParamList *instance, void *output, size_t size);
int GetOfflineEnabled(const HSI_ParamList *instance, void *output, size_t size);

}  // namespace hosted
