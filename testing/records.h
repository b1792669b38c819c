// For tests that stand in for the daemon: what its senders have sent.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "hosted/records/rawRecord.h"

namespace testing_support {

/// The next record that waits on `fd`; one with an empty id when there is none or it is not well-formed.
inline hosted::RawRecord ReceiveRecord(int fd) {
  std::vector<std::byte> bytes(hosted::kMaxRecordSize + 1);
  const ssize_t length = recv(fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (length <= 0) return {};
  const char *wrong = hosted::CheckRecord(bytes.data(), static_cast<size_t>(length));
  EXPECT_EQ(wrong, nullptr) << wrong;
  return wrong == nullptr ? hosted::DecodeRecord(bytes.data(), static_cast<size_t>(length)) : hosted::RawRecord{};
}

/// The arguments of `record`, each with its kind, an integer's width in bytes, and its value: "i4:-5", "u1:255",
/// "s:text", "null".
inline std::vector<std::string> Shown(const hosted::RawRecord &record) {
  using enum hosted::ArgumentKind;
  std::vector<std::string> shown;
  for (const auto &[kind, width, bits, text] : record.arguments) {
    const std::string value = kind == kSigned ? std::to_string(static_cast<int64_t>(bits)) : std::to_string(bits);
    const std::string number = (kind == kSigned ? "i" : "u") + std::to_string(width) + ":" + value;
    shown.push_back(kind == kNullString ? "null" : kind == kString ? "s:" + text : number);
  }
  return shown;
}

}  // namespace testing_support
