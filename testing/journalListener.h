// A journal's end for tests: its socket below the process's root.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

#include "base/uniqueFd.h"
#include "base/unixAddress.h"
#include "hosted/paths.h"

namespace testing_support {

/// Listens at the journal's socket as long as it lives. Records come as datagrams or as sealed files.
class JournalListener {
 public:
  JournalListener() {
    std::filesystem::create_directories(std::filesystem::path(path_).parent_path());
    Open();
  }
  ~JournalListener() { Close(); }
  void Open() {
    base::UnixAddress address;
    EXPECT_EQ(base::MakeUnixAddress(path_, &address), 0);
    fd_.Reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(bind(fd_.Get(), address.Get(), base::UnixAddress::kLength), 0);
  }
  void Close() {
    fd_.Reset();
    unlink(path_.c_str());
  }
  /// The next record, "" after `patienceMs` without one.
  std::string Next(int patienceMs = 0) {
    pollfd readable{fd_.Get(), POLLIN, 0};
    if (poll(&readable, 1, patienceMs) != 1) return "";
    std::string text(300'000, '\0');
    iovec part{text.data(), text.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{nullptr, 0, &part, 1, control, sizeof control, 0};
    const ssize_t got = recvmsg(fd_.Get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    text.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
    const cmsghdr *header = got < 0 ? nullptr : CMSG_FIRSTHDR(&message);
    if (header == nullptr) return text;
    ++files;
    int file = -1;
    std::memcpy(&file, CMSG_DATA(header), sizeof file);
    const base::UniqueFd owner(file);
    EXPECT_EQ(fcntl(file, F_GET_SEALS), F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
    text.resize(static_cast<size_t>(lseek(file, 0, SEEK_END)));
    EXPECT_EQ(pread(file, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    return text;
  }

  int files = 0;  ///< records that came as a file

 private:
  const std::string path_ = hosted::RootPath(hosted::kJournalSocket);
  base::UniqueFd fd_;
};

}  // namespace testing_support
