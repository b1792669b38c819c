// Records for the journal as datagrams and as sealed files. Any thread; no state but the socket's.
#include "hosted/log/journalDatagram.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <array>
#include <cstring>

#include "base/uniqueFd.h"

namespace hosted {
namespace {

/// Send the record in a file that can't be changed any more.
SendResult SendAsFile(LogSocket *socket, iovec *parts, size_t count) {
  const base::UniqueFd file(memfd_create("rynd-log", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file) return SendResult::kTooLong;
  size_t size = 0;
  for (size_t i = 0; i < count; ++i) size += parts[i].iov_len;
  if (writev(file.Get(), parts, static_cast<int>(count)) != static_cast<ssize_t>(size) ||
      fcntl(file.Get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) != 0) {
    return SendResult::kTooLong;
  }
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
  msghdr record{};
  record.msg_control = control.data();
  record.msg_controllen = control.size();
  cmsghdr *header = CMSG_FIRSTHDR(&record);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  const int fd = file.Get();
  std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
  return socket->Send(record);
}

}  // namespace

SendResult SendJournalDatagram(LogSocket *socket, iovec *parts, size_t count) {
  msghdr record{};
  record.msg_iov = parts;
  record.msg_iovlen = count;
  const SendResult result = socket->Send(record);
  return result == SendResult::kTooLong ? SendAsFile(socket, parts, count) : result;
}

}  // namespace hosted
