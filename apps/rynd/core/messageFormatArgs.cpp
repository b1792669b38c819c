#include "core/messageFormatArgs.h"

#include <cstdarg>

#include "platform/ryn.h"

namespace rynd {
namespace {

bool IsOneOf(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

}  // namespace

std::string ExtractionFormat(std::string_view messageTemplate) {
  std::string format;
  for (size_t i = 0; i < messageTemplate.size(); ++i) {
    if (messageTemplate[i] != '%') continue;
    ++i;
    if (i < messageTemplate.size() && messageTemplate[i] == '%') continue;
    while (i < messageTemplate.size() && IsOneOf(messageTemplate[i], " #+-0123456789.")) ++i;
    format += '%';
    while (i < messageTemplate.size() && IsOneOf(messageTemplate[i], "hl")) format += messageTemplate[i++];
    if (i < messageTemplate.size()) format += messageTemplate[i];
  }
  return format;
}

int GetArgsByMessageFormat(const Observation *observation, const char *messageTemplate, ...) {
  const std::string format = ExtractionFormat(messageTemplate);
  va_list outputs;
  va_start(outputs, messageTemplate);
  const int status = Ryn_GetArgsVA(observation, format.c_str(), outputs);
  va_end(outputs);
  return status;
}

}  // namespace rynd
