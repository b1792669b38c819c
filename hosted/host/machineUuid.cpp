// The machine's identity. Stateless: any thread.
#include <sys/utsname.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "hosted/flight/recorder.h"
#include "hosted/host/machine.h"

namespace hosted {
namespace {

constexpr size_t kMachineIdSize = 32;
constexpr std::array<size_t, 4> kDashes = {8, 13, 18, 23};  // positions in the text

/// 32 hexadecimal digits with the dashes of a UUID.
std::string WithDashes(std::string_view digits) {
  std::string text(digits);
  for (const size_t at : kDashes) text.insert(at, 1, '-');
  return text;
}

/// The machine's own id. False when it has none.
bool ReadMachineId(std::string *id) {
  std::FILE *file = std::fopen("/etc/machine-id", "re");
  if (file == nullptr) return false;
  std::array<char, kMachineIdSize + 1> text{};
  const bool read = std::fgets(text.data(), text.size(), file) != nullptr;
  std::fclose(file);
  *id = text.data();
  return read && id->size() == kMachineIdSize && id->find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// Digits that a host without an id keeps as long as its name: two hashes (64-bit FNV-1a) of that.
std::string DigitsOfHostName() {
  utsname names{};
  uname(&names);
  std::string digits;
  for (const uint64_t start : {uint64_t{0xcbf29ce484222325}, uint64_t{0x84222325cbf29ce4}}) {
    uint64_t hash = start;
    for (const char *at = names.nodename; *at != '\0'; ++at) {
      hash = (hash ^ static_cast<unsigned char>(*at)) * 0x100000001b3;
    }
    std::array<char, 17> text;
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(hash));
    digits += text.data();
  }
  return digits;
}

}  // namespace

std::string MachineUuid() {
  std::string id;
  std::string uuid = WithDashes(ReadMachineId(&id) ? id : DigitsOfHostName());
  RecordHost(flight::HostKind::kText, "machine/uuid", 0, uuid);
  return uuid;
}

}  // namespace hosted
