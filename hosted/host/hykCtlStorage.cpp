// The file systems of the host tree: storage/filesystems/UUID holds a label. Any thread.
#include "platform/hykCtlStorage.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "hosted/host/hostTree.h"
#include "platform/hostMgmt.h"

namespace HykCtl::Storage {
namespace {

constexpr const char *kFolder = "storage/filesystems";

[[noreturn]] void Fail(const std::string &what, int error) {
  throw HostMgmt::Lib::HostMgmtException("cannot read " + what + ": " + std::strerror(error));
}

}  // namespace

FileSystem::FileSystem(std::string label, std::string uuid) : label_(std::move(label)), uuid_(std::move(uuid)) {}

std::vector<FileSystem> StorageInfoImpl::GetFileSystems() const {
  std::vector<std::string> uuids;
  if (const int error = hosted::ListHostFolder(kFolder, &uuids); error != 0) Fail("the host's file systems", error);
  std::vector<FileSystem> fileSystems;
  for (const std::string &uuid : uuids) {
    std::string label;
    const int error = hosted::ReadHostText(std::string(kFolder) + "/" + hosted::HostComponent(uuid.c_str()), &label);
    // It has just gone, or can't be read, which the log tells: the others count all the same.
    if (error != 0) continue;
    fileSystems.emplace_back(label, uuid);
  }
  return fileSystems;
}

}  // namespace HykCtl::Storage
