// A file system that a test can fill.
#pragma once

#include <sys/mount.h>

#include <filesystem>
#include <string>

namespace testing_support {

/// A disk of its own at `path`, of `size`; only root can have one.
class SmallDisk {
 public:
  SmallDisk(const std::string &path, const std::string &size) : path_(path) {
    std::filesystem::create_directories(path);
    isMounted_ = mount("none", path.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
  }
  ~SmallDisk() {
    if (isMounted_) umount2(path_.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk &) = delete;
  SmallDisk &operator=(const SmallDisk &) = delete;
  bool IsMounted() const { return isMounted_; }
  bool Change(unsigned long flags, const char *options) const {
    return mount("none", path_.c_str(), "tmpfs", MS_REMOUNT | flags, options) == 0;
  }

 private:
  const std::string path_;
  bool isMounted_ = false;
};

}  // namespace testing_support
