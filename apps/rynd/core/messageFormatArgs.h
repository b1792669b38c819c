// Reading an observation's arguments by the kernel's printf message template. Agent's thread.
#pragma once

#include <string>
#include <string_view>

struct Observation;

namespace rynd {

/// The extraction format of a message template: its conversions alone, without flags, with their length modifiers.
std::string ExtractionFormat(std::string_view messageTemplate);

/// Read all arguments that `messageTemplate` shows into the outputs, in its order: "%s" a `const char **`, "%d", "%u"
/// and
/// "%x" a 32-bit integer, with l a 64-bit one. 0, or the status of the first argument that can't be read.
int GetArgsByMessageFormat(const Observation *observation, const char *messageTemplate, ...);

}  // namespace rynd
