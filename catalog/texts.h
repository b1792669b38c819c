// The texts that the catalogue is read from, as the build embeds them.
#pragma once

#include <span>
#include <string_view>

namespace catalog {

/// One JSON text in pieces that belong together.
struct EmbeddedText {
  const char *name;  ///< for errors: "storage.json"
  std::span<const std::string_view> pieces;
};

/// What the daemon's own code says of itself: the first; then the reviewed texts, one a subsystem.
extern const std::span<const EmbeddedText> kTexts;

}  // namespace catalog
