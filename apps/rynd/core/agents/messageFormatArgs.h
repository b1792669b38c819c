// Reading an observation's arguments by the kernel's printf message template. Agent's thread.
#pragma once

#include <string>
#include <string_view>

struct Observation;

namespace rynd {

/// The extraction format of a message template: its conversions alone, without flags, with their length modifiers and,
/// where they name their argument ("%2$lu"), its number.
std::string ExtractionFormat(std::string_view messageTemplate);

/// Read all arguments that `messageTemplate` shows into the outputs, in its order: "%s" a `const char **`, "%d", "%u"
/// and
/// "%x" a 32-bit integer, with l, ll, z, j or t a 64-bit one, with h 16 bits and with hh 8. 0, or the status of the
/// first argument that can't be read; kRynWrongKind for a conversion that reads none, such as "%Lf", "%n" or "%*d".
int GetArgsByMessageFormat(const Observation *observation, const char *messageTemplate, ...);

}  // namespace rynd
