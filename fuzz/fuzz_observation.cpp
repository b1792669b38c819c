// Arbitrary bytes as a raw record; what is accepted is read by every accessor, with formats taken from the bytes too.
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/seedRecord.h"
#include "platform/ryn.h"

namespace {

void ReadAll(const Observation *observation, const std::string &format) {
  const char *text = nullptr;
  char *message = nullptr;
  char *second = nullptr;
  int32_t value = 0;
  Ryn_GetID(observation, &text);
  Ryn_GetMsg(observation, &message, &second);
  free(message);
  RynArg argument{};
  for (uint32_t i = 0; Ryn_GetArg(observation, i, &argument) == 0; ++i) {
    if (argument.kind == RynArg::Kind::kString && strlen(argument.text) > hosted::kMaxRecordSize) abort();
    Ryn_GetStringArg(observation, i, &text);
    Ryn_GetIntArg(observation, i, &value);
  }
  // Outputs as wide as any conversion writes.
  uint64_t outputs[8] = {};
  size_t conversions = 0;
  for (const char c : format) conversions += c == '%' ? 1 : 0;
  if (conversions > 8) return;
  Ryn_GetArgs(observation, format.c_str(), &outputs[0], &outputs[1], &outputs[2], &outputs[3], &outputs[4], &outputs[5],
              &outputs[6], &outputs[7]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::vector<std::byte> bytes = fuzz::Mutate(data, size, fuzz::SeedRecord());
  const bool sound = hosted::CheckRecord(bytes.data(), bytes.size()) == nullptr;
  auto *copy = new std::byte[bytes.size()];
  std::copy(bytes.begin(), bytes.end(), copy);
  Observation *observation = nullptr;
  const bool made = Ryn_MakeRyn(copy, bytes.size(), &observation) == 0;
  if (made != sound) abort();
  if (!made) {
    delete[] copy;
    return 0;
  }
  ReadAll(observation, std::string(reinterpret_cast<const char *>(data), size));
  Ryn_Free(observation);
  // What is accepted says the same when it is encoded again.
  const hosted::RawRecord record = hosted::DecodeRecord(bytes.data(), bytes.size());
  const std::vector<std::byte> again = hosted::EncodeRecord(record);
  if (hosted::CheckRecord(again.data(), again.size()) != nullptr) abort();
  return 0;
}
