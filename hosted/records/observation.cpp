// Observations and their plain accessors. One thread at a time an observation.
#include "hosted/records/observation.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "hosted/flight/recorder.h"
#include "hosted/records/littleEndian.h"

namespace hosted {
namespace {

const char *TextAt(const Observation &observation, size_t offset) {
  return reinterpret_cast<const char *>(observation.bytes.get() + offset);
}

size_t ArgumentArea(const RawHeader &header) {
  return kRecordHeaderSize + header.idLength + header.messageLength;
}

/// Fill the table of `observation`, whose record is well-formed. False without memory.
bool IndexArguments(Observation *observation) {
  const uint32_t count = observation->header.argumentCount;
  uint32_t *offsets = observation->fewOffsets.data();
  if (count > observation->fewOffsets.size()) {
    observation->manyOffsets.reset(new (std::nothrow) uint32_t[count]);
    offsets = observation->manyOffsets.get();
  }
  if (offsets == nullptr) return false;
  size_t at = ArgumentArea(observation->header);
  for (uint32_t i = 0; i < count; ++i) {
    offsets[i] = static_cast<uint32_t>(at);
    at += kArgumentHeaderSize + LoadLittle<uint32_t>(observation->bytes.get() + at + 4);
  }
  return true;
}

/// Observations that were freed: a thread has one at a time, and makes the next one of it. Some more than there are
/// agents, which get one each; other threads share.
std::array<std::atomic<Observation *>, 32> spares;
std::atomic<uint32_t> spareUsers = 0;

std::atomic<Observation *> &OwnSpare() {
  thread_local constinit uint32_t number = 0;
  if (number == 0) number = ++spareUsers;
  return spares[number % spares.size()];
}

/// A new observation of nothing, or null without memory.
Observation *NewObservation() {
  Observation *const spare = OwnSpare().exchange(nullptr, std::memory_order_acquire);
  return spare != nullptr ? spare : new (std::nothrow) Observation;
}

/// Whether an integer can be represented in `bits` (below 64) bits, signed or unsigned.
bool Fits(const RawArgumentView &view, unsigned bits) {
  const bool negative = view.kind == ArgumentKind::kSigned && static_cast<int64_t>(view.bits) < 0;
  if (negative) return static_cast<int64_t>(view.bits) >= -(int64_t{1} << (bits - 1));
  return view.bits < uint64_t{1} << bits;
}

}  // namespace

int FindArgument(const Observation *observation, uint32_t index, RawArgumentView *view) {
  if (observation == nullptr || index >= observation->header.argumentCount) return kRynNoArgument;
  const uint32_t offset = observation->Offsets()[index];
  ParseRawArgument(observation->bytes.get() + offset, observation->length - offset, view);
  return 0;
}

int ReadText(const Observation *observation, uint32_t index, const char **text) {
  RawArgumentView view;
  if (const int status = FindArgument(observation, index, &view); status != 0) return status;
  if (view.kind != ArgumentKind::kString && view.kind != ArgumentKind::kNullString) return kRynWrongKind;
  *text = view.text.data();
  return 0;
}

int ReadInteger(const Observation *observation, uint32_t index, size_t width, void *output) {
  RawArgumentView view;
  if (const int status = FindArgument(observation, index, &view); status != 0) return status;
  if (view.kind != ArgumentKind::kSigned && view.kind != ArgumentKind::kUnsigned) return kRynWrongKind;
  if (width < sizeof view.bits && !Fits(view, static_cast<unsigned>(width * 8))) return kRynOutOfRange;
  std::memcpy(output, &view.bits, width);  // little-endian: the low bytes
  return 0;
}

}  // namespace hosted

int Ryn_MakeRyn(std::byte *bytes, size_t length, Observation **observation) {
  *observation = nullptr;
  if (bytes == nullptr || hosted::CheckRecord(bytes, length) != nullptr) return EINVAL;
  auto *made = hosted::NewObservation();
  if (made == nullptr) return ENOMEM;
  made->bytes.reset(bytes);
  made->length = length;
  made->header = hosted::LoadRawHeader(bytes);
  if (!hosted::IndexArguments(made)) {
    made->bytes.release();  // the caller keeps them
    delete made;
    return ENOMEM;
  }
  *observation = made;
  hosted::RecordTaken(bytes, length);
  return 0;
}

void Ryn_Free(Observation *observation) {
  if (observation == nullptr) return;
  hosted::RecordDone();
  observation->bytes.reset();
  observation->manyOffsets.reset();
  delete hosted::OwnSpare().exchange(observation, std::memory_order_acq_rel);
}

int Ryn_GetID(const Observation *observation, const char **id) {
  *id = nullptr;
  if (observation == nullptr) return EINVAL;
  *id = hosted::TextAt(*observation, hosted::kRecordHeaderSize);
  return 0;
}

int Ryn_GetMsg(const Observation *observation, char **message, char **second) {
  *message = nullptr;
  if (second != nullptr) *second = nullptr;
  if (observation == nullptr) return EINVAL;
  const hosted::RawHeader &header = observation->header;
  // The text may lack its NUL.
  *message = strndup(hosted::TextAt(*observation, hosted::kRecordHeaderSize + header.idLength), header.messageLength);
  return *message == nullptr ? ENOMEM : 0;
}

const char *Ryn_ViewMsg(const Observation *observation) {
  if (observation == nullptr) return nullptr;
  const hosted::RawHeader &header = observation->header;
  const char *const text = hosted::TextAt(*observation, hosted::kRecordHeaderSize + header.idLength);
  return header.messageLength > 0 && text[header.messageLength - 1] == '\0' ? text : nullptr;
}

int Ryn_GetTimestamp(const Observation *observation, uint64_t *microseconds) {
  if (observation == nullptr) return EINVAL;
  *microseconds = observation->header.microseconds;
  return 0;
}

int Ryn_GetStringArg(const Observation *observation, uint32_t index, const char **text) {
  return hosted::ReadText(observation, index, text);
}

int Ryn_GetIntArg(const Observation *observation, uint32_t index, int32_t *value) {
  return hosted::ReadInteger(observation, index, sizeof *value, value);
}

int Ryn_GetArg(const Observation *observation, uint32_t index, RynArg *argument) {
  hosted::RawArgumentView view;
  if (const int status = hosted::FindArgument(observation, index, &view); status != 0) return status;
  *argument = {static_cast<RynArg::Kind>(view.kind), view.width, view.bits, view.text.data()};
  return 0;
}

bool Ryn_IsID(const char *id, const char *exactId) {
  if (id == nullptr || exactId == nullptr) return false;
  constexpr std::string_view kPrefix = "ryn.";
  if (std::strcmp(id, exactId) == 0) return true;
  return std::string_view(id).starts_with(kPrefix) && std::strcmp(id + kPrefix.size(), exactId) == 0;
}
