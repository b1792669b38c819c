// Arbitrary bytes as an event record, decoded and rendered as the listener does, also with a format of the input's own.
#include <cstring>
#include <string>

#include "eventRecord/eventDecoder.h"
#include "fuzz/seedRecord.h"
#include "hosted/records/eventArguments.h"

namespace {

/// An event record with a string and an integer.
std::vector<std::byte> SeedEvent() {
  const char name[] = "amb.problem.storage.apd.timeout";
  const uint32_t fields[] = {static_cast<uint32_t>(sizeof name + 72 + 38), 2, sizeof name};
  std::vector<std::byte> record(68 + sizeof name + 38 + 4);
  std::memcpy(record.data() + 56, fields, sizeof fields);
  std::memcpy(record.data() + 68, name, sizeof name);
  const uint32_t text[] = {3, 6, 32, 0};
  const uint32_t number[] = {1, 4, 140, 0};
  std::memcpy(record.data() + 68 + sizeof name, text, sizeof text);
  std::memcpy(record.data() + 84 + sizeof name, number, sizeof number);
  std::memcpy(record.data() + 100 + sizeof name, "naa.1", 6);
  return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::vector<std::byte> bytes = fuzz::Mutate(data, size, SeedEvent());
  eventrecord::DecodeEvent(bytes.data(), bytes.size());
  std::string text;
  const std::string format(reinterpret_cast<const char *>(data), size);
  hosted::RenderEvent(format.c_str(), bytes.data(), bytes.size(), size > 4 ? data[3] : 2, &text);
  return 0;
}
