// Kernel control: sysinfo nodes as objects. Declarations only; a platform library provides them. Any thread; an object
// belongs to one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/hsi.h"

namespace HykCtl::Util {

/// One access to a sysinfo node. Failures throw HostMgmt::Lib::HostMgmtException, which names the node.
class Sysinfo {
 public:
  /// `node` is its path, such as "vm/vmmGroupInfo": borrowed for the object's life.
  explicit Sysinfo(const char *node);
  /// Append a component of the instance's path.
  Sysinfo &AddInstancePath(const char *name);
  Sysinfo &AddInstancePath(int64_t number);
  /// Append an input: a value that is written, or one that a read is about.
  Sysinfo &AddInput(int64_t value);
  Sysinfo &AddInput(const char *text);
  /// Read the node into exactly `size` bytes of `output`.
  void Get(void *output, size_t size) const;
  /// Write the inputs to the node.
  void Set() const;

 private:
  struct DestroyList {
    void operator()(HSI_ParamList *list) const { HSI_ParamListDestroy(list); }
  };
  const char *node_;
  std::unique_ptr<HSI_ParamList, DestroyList> instance_, inputs_;
};

}  // namespace HykCtl::Util
