// The observation contexts: what RynLib's files share. The poll loop's thread only.
#pragma once

#include <sys/types.h>

#include <array>
#include <memory>
#include <string>

#include "base/acceptor.h"
#include "base/uniqueFd.h"
#include "platform/ryn.h"

/// One open context.
struct RynLibContext {
  uint32_t id = 0;
  std::array<char, kRynLibNameSize> name{};  ///< "kernel-07" or "user"
  std::string path;                          ///< of the socket file
  dev_t device = 0;                          ///< with `inode`: the socket file that this context made
  ino_t inode = 0;
  base::UniqueFd fd;
  std::unique_ptr<base::Acceptor> acceptor;  ///< of the user context
};

namespace hosted {

/// The open kernel context that owns `fd`; kRynUserContext without one.
uint32_t FindContext(int fd);

/// Discard the record of kernel context `id` that waits for a larger buffer, adding its length to `bytes`. False
/// without one.
bool DropHeldRecord(uint32_t id, size_t *bytes);

/// Whether `fd` is a user connection that is open.
bool IsUserConnection(int fd);
/// Read the next record of a user connection as RynLib_ReadFromFd says.
int ReadUserRecord(int fd, std::byte *buffer, size_t size, size_t *length);
/// Discard what is pending on every user connection, adding to the counts.
void DrainUserConnections(size_t *records, size_t *bytes);

/// Bad records that one read may discard, so that a flood of them starves nobody.
constexpr int kMaxDiscards = 64;

}  // namespace hosted
