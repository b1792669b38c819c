#include "core/agents/messageFormatArgs.h"

#include <algorithm>
#include <cstdarg>

#include "platform/ryn.h"

namespace rynd {
namespace {

/// Append the conversion that begins behind the '%' at `*at` and move `*at` behind it: as it stands, without what only
/// says how a value looks. What reads no single argument, such as a width by '*', stays for the reader to refuse.
void AppendConversion(std::string_view text, size_t *at, std::string *format) {
  *format += '%';
  const size_t digits = std::min(text.find_first_not_of("0123456789", *at), text.size());
  if (digits > *at && digits < text.size() && text[digits] == '$') {
    format->append(text.substr(*at, digits + 1 - *at));
    *at = digits + 1;
  }
  for (; *at < text.size(); ++*at) {
    if (text[*at] == '*') *format += '*';
    if (std::string_view(" #+-0123456789.*'").find(text[*at]) == std::string_view::npos) break;
  }
  while (*at < text.size() && std::string_view("hljztLq").find(text[*at]) != std::string_view::npos) {
    *format += text[(*at)++];
  }
  if (*at < text.size()) *format += text[(*at)++];
}

}  // namespace

std::string ExtractionFormat(std::string_view messageTemplate) {
  std::string format;
  for (size_t at = messageTemplate.find('%'); at != std::string_view::npos; at = messageTemplate.find('%', at)) {
    ++at;
    if (at < messageTemplate.size() && messageTemplate[at] == '%') {
      ++at;
    } else {
      AppendConversion(messageTemplate, &at, &format);
    }
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
