// Kernel control: the host's file systems. Declarations only; a platform library provides them. Any thread; an object
// belongs to one at a time.
#pragma once

#include <string>
#include <vector>

namespace HykCtl::Storage {

/// One file system, by the two texts that identify it.
class FileSystem {
 public:
  FileSystem(std::string label, std::string uuid);
  const std::string &GetLabel() const { return label_; }
  const std::string &GetUuid() const { return uuid_; }

 private:
  std::string label_, uuid_;
};

class StorageInfoImpl {
 public:
  /// The host's file systems, ordered by UUID. Throws HostMgmt::Lib::HostMgmtException when they can't be read.
  std::vector<FileSystem> GetFileSystems() const;
};

}  // namespace HykCtl::Storage
