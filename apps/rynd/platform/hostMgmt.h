// Host management: the exception that its operations, and those of kernel control, report failures with.
// Declarations only; a platform library provides what they declare.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace HostMgmt::Lib {

/// A failure of the host-management or the kernel-control library.
class HostMgmtException : public std::exception {
 public:
  explicit HostMgmtException(std::string detailedMessage) : detailedMessage_(std::move(detailedMessage)) {}
  /// What failed and why, for a person.
  const std::string &GetDetailedMessage() const { return detailedMessage_; }
  const char *what() const noexcept override { return detailedMessage_.c_str(); }

 private:
  std::string detailedMessage_;
};

}  // namespace HostMgmt::Lib
