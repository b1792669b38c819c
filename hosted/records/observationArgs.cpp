// Reading an observation's arguments by a scanf-like format. One thread at a time an observation.
#include "hosted/records/observation.h"
#include "hosted/records/printfWalk.h"

namespace hosted {
namespace {

size_t OutputWidth(Conversion::Length length) {
  switch (length) {
    case Conversion::Length::kChar:
      return 1;
    case Conversion::Length::kShort:
      return 2;
    case Conversion::Length::kInt:
      return 4;
    case Conversion::Length::kLong:
      break;
  }
  return 8;
}

/// Read argument `index` into `output` as `conversion` says. 0 or a status.
int ReadConversion(const Observation *observation, const Conversion &conversion, uint32_t index, void *output) {
  switch (conversion.letter) {
    case 'p':
    case 's':
      return ReadText(observation, index, static_cast<const char **>(output));
    default:
      return ReadInteger(observation, index, OutputWidth(conversion.length), output);
  }
}

/// Whether the conversion is one that reads an argument. A width or precision by '*' would need an input.
bool IsReadable(const Conversion &conversion) {
  if (conversion.width == Conversion::kStar || conversion.precision == Conversion::kStar) return false;
  switch (conversion.letter) {
    case 'p':
    case 's':
      return !conversion.modified;
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      return true;
    default:
      return false;
  }
}

}  // namespace
}  // namespace hosted

int Ryn_GetArgs(const Observation *observation, const char *format, ...) {
  va_list outputs;
  va_start(outputs, format);
  const int status = Ryn_GetArgsVA(observation, format, outputs);
  va_end(outputs);
  return status;
}

int Ryn_GetArgsVA(const Observation *observation, const char *format, va_list outputs) {
  if (observation == nullptr || format == nullptr) return kRynWrongKind;
  std::string_view skipped;
  hosted::Conversion conversion;
  uint32_t next = 0;
  while (hosted::NextConversion(&format, &skipped, &conversion)) {
    if (conversion.letter == '%') continue;
    if (!hosted::IsReadable(conversion)) return kRynWrongKind;
    const uint32_t index = conversion.position != 0 ? conversion.position - 1 : next++;
    const int status = hosted::ReadConversion(observation, conversion, index, va_arg(outputs, void *));
    if (status != 0) return status;
  }
  return 0;
}
