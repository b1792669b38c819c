// Copies of recordings for sending away, without the names that they hold. One thread.
#pragma once

#include <ostream>
#include <string>

namespace flight {

/// Copy the recording at `from`, a file or a folder, to `out` as one file, with names in the arguments of observations,
/// in the host tree and in events replaced by pseudonyms: the same for the same name, of the same form. Ids, messages,
/// numbers, settings and times stay, the root folder and the boot's id go. "", or why there is no copy; failures of
/// `out` are its own to tell.
std::string Redact(const std::string &from, std::ostream *out);

}  // namespace flight
