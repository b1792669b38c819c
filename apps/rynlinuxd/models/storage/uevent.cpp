#include "models/storage/uevent.h"

#include <string_view>

namespace rynlinuxd {

const std::string &Uevent::Value(const std::string &name) const {
  static const std::string &none = *new std::string;
  const auto found = values.find(name);
  return found == values.end() ? none : found->second;
}

std::optional<Uevent> ParseUevent(std::span<const std::byte> bytes) {
  std::string_view rest(reinterpret_cast<const char *>(bytes.data()), bytes.size());
  Uevent event;
  const auto takeText = [&] {
    const size_t end = rest.find('\0');
    const std::string_view text = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return text;
  };
  const std::string_view head = takeText();
  const size_t at = head.find('@');
  if (at == 0 || at == std::string_view::npos) return std::nullopt;
  event.action = head.substr(0, at);
  event.path = head.substr(at + 1);
  if (!event.path.starts_with('/')) return std::nullopt;
  while (!rest.empty()) {
    const std::string_view text = takeText();
    const size_t equals = text.find('=');
    if (equals != std::string_view::npos) event.values[std::string(text.substr(0, equals))] = text.substr(equals + 1);
  }
  return event;
}

}  // namespace rynlinuxd
