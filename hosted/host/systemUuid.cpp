// The host's UUID, system/systemUuid. Stateless: any thread.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "hosted/host/hostTree.h"
#include "hosted/host/machine.h"
#include "hosted/host/sysinfo.h"
#include "hosted/log/log.h"

namespace hosted {
namespace {

constexpr size_t kBinarySize = 16;
constexpr size_t kTextSize = 36;
constexpr std::array<size_t, 4> kDashes = {8, 13, 18, 23};  // positions in the text
using BinaryUuid = std::array<uint8_t, kBinarySize>;

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// Parse a text such as "564d9f3c-1c1e-4b7a-9d37-0a1b2c3d4e5f".
bool ParseUuid(std::string_view text, BinaryUuid *uuid) {
  if (text.size() != kTextSize) return false;
  uuid->fill(0);
  size_t digits = 0;
  for (size_t i = 0; i < kTextSize; ++i) {
    if (std::find(kDashes.begin(), kDashes.end(), i) != kDashes.end()) {
      if (text[i] != '-') return false;
      continue;
    }
    const int digit = HexDigit(text[i]);
    if (digit < 0) return false;
    uint8_t &byte = (*uuid)[digits++ / 2];
    byte = static_cast<uint8_t>(byte << 4 | digit);
  }
  return true;
}

}  // namespace

int GetSystemUuid(const HSI_ParamList *instance, void *output, size_t size) {
  if (instance != nullptr || size != kHsiSystemUuidSize) return EINVAL;
  constexpr char kPath[] = "sysinfo/system/systemUuid";
  std::string text;
  const int error = ReadHostText(kPath, &text);
  if (error == ENOENT) text = MachineUuid();
  if (error != 0 && error != ENOENT) return error;
  BinaryUuid uuid;
  if (!ParseUuid(text, &uuid)) {
    Log("Cannot read %s: \"%.100s\" is no UUID", HostTreePath(kPath).c_str(), text.c_str());
    return EINVAL;
  }
  std::memset(output, 0, size);
  std::memcpy(output, uuid.data(), kBinarySize);
  std::memcpy(static_cast<char *>(output) + kBinarySize, text.data(), kTextSize);
  return 0;
}

}  // namespace hosted
