// Sysinfo nodes as objects. Any thread.
#include "platform/hykCtlUtil.h"

#include <cstring>
#include <new>
#include <string>

#include "hosted/host/sysinfo.h"
#include "platform/hostMgmt.h"

namespace HykCtl::Util {
namespace {

void Check(HYK_ReturnStatus status, const char *node, const char *operation) {
  if (status == kHykOk) return;
  throw HostMgmt::Lib::HostMgmtException(std::string("cannot ") + operation + " the sysinfo node " + node + ": " +
                                         std::strerror(HYK_ReturnStatusToErrno(status)));
}

}  // namespace

Sysinfo::Sysinfo(const char *node) : node_(node), instance_(HSI_ParamListCreate()), inputs_(HSI_ParamListCreate()) {
  if (instance_ == nullptr || inputs_ == nullptr) throw std::bad_alloc();
}

Sysinfo &Sysinfo::AddInstancePath(const char *name) {
  Check(HSI_ParamListAddString(instance_.get(), name), node_, "address");
  return *this;
}

Sysinfo &Sysinfo::AddInstancePath(int64_t number) {
  Check(HSI_ParamListAddInt(instance_.get(), number), node_, "address");
  return *this;
}

Sysinfo &Sysinfo::AddInput(int64_t value) {
  Check(HSI_ParamListAddInt(inputs_.get(), value), node_, "write");
  return *this;
}

Sysinfo &Sysinfo::AddInput(const char *text) {
  Check(HSI_ParamListAddString(inputs_.get(), text), node_, "write");
  return *this;
}

void Sysinfo::Get(void *output, size_t size) const {
  // A read that has no instance is about its inputs.
  const HSI_ParamList *about = instance_->params.empty() ? inputs_.get() : instance_.get();
  Check(HSI_Get(node_, about->params.empty() ? nullptr : about, output, size), node_, "read");
}

void Sysinfo::Set() const {
  Check(HSI_Set(node_, instance_.get(), inputs_.get()), node_, "write");
}

}  // namespace HykCtl::Util
