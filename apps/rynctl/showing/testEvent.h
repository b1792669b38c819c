// For tests: event records as the daemon sends them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/messageFormat.h"
#include "post/eventRecord.h"

namespace rynctl {

constexpr uint64_t kTestTime = 1'700'000'000'123'456;
constexpr char kApdStart[] = "amb.problem.storage.apd.start";
constexpr char kTestUuid[] = "00112233-4455-6677-8899-aabbccddeeff";

inline void PutNumber(std::vector<std::byte> *bytes, size_t offset, uint64_t value, size_t width) {
  std::memcpy(bytes->data() + offset, &value, width);
}

/// A whole record with text arguments.
inline std::vector<std::byte> EventBytes(const std::string &name, const std::vector<std::string> &texts,
                                         uint64_t sequence = 7, uint64_t timeUs = kTestTime) {
  const size_t nameLength = name.size() + 1;
  const size_t area = rynd::kEventNameOffset + nameLength;
  std::vector<std::byte> bytes(area + texts.size() * sizeof(MsgFmtArg));
  PutNumber(&bytes, 0, timeUs, 8);
  PutNumber(&bytes, 8, sequence, 8);
  std::memcpy(bytes.data() + rynd::kEventUuidOffset, kTestUuid, sizeof kTestUuid);
  PutNumber(&bytes, rynd::kEventArgumentCountOffset, texts.size(), 4);
  PutNumber(&bytes, rynd::kEventNameLengthOffset, nameLength, 4);
  std::memcpy(bytes.data() + rynd::kEventNameOffset, name.c_str(), nameLength);
  for (size_t i = 0; i < texts.size(); ++i) {
    const MsgFmtArg argument{MsgFmtKind::kString, static_cast<uint32_t>(texts[i].size() + 1), bytes.size() - area};
    std::memcpy(bytes.data() + area + i * sizeof argument, &argument, sizeof argument);
    const auto *text = reinterpret_cast<const std::byte *>(texts[i].c_str());
    bytes.insert(bytes.end(), text, text + texts[i].size() + 1);
  }
  bytes.resize(bytes.size() + 4);
  PutNumber(&bytes, rynd::kEventTotalLengthOffset, bytes.size(), 4);
  return bytes;
}

}  // namespace rynctl
