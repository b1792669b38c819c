// What the build makes of the catalogue, each a whole file.
#pragma once

#include <string>
#include <string_view>

namespace catalog {

/// rynd-events(7), in the man macros; lines of at most 80 bytes. `date` is YYYY-MM-DD.
std::string ManualPage(std::string_view date);
/// A page of all events with a search that needs no server and no other file.
std::string HtmlPage();
/// What `journalctl -x` shows below an event, for /usr/lib/systemd/catalog.
std::string JournalCatalog();
/// Completion of rynctl's command line for bash.
std::string BashCompletion();

}  // namespace catalog
