// Composition of event records. Any thread.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "post/category.h"

namespace rynd {

/// Post one event. `format` is the marker, the event id, ")" and a printf message; the arguments follow. The category
/// alone says how much of the format is skipped in front of the short id: a namespace that does not match it yields a
/// wrongly cut id. Failures are logged; a category above 2 and a lack of memory for the short id are fatal.
[[gnu::format(printf, 2, 3)]] void EventPost(uint32_t category, const char *format, ...);

/// The older entry for problems, with the short id and the message in two texts. Logs that it is discouraged.
[[gnu::format(printf, 2, 3)]] void Rynd_PostProblem(const char *shortId, const char *format, ...);

/// Build the record of the event called `eventNamespace` + `shortId` and hand it to delivery.
[[gnu::format(printf, 3, 0)]] void EventPostCore(const char *eventNamespace, const char *shortId,
                                                 const char *messageFormat, va_list arguments);

}  // namespace rynd
