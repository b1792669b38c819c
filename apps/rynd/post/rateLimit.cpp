#include "post/rateLimit.h"

#include "core/basics/log.h"

namespace rynd {
namespace {

RateLimit rateLimit;

}  // namespace

bool PassesRateLimit(int64_t now, const char *eventNamespace, const char *shortId) {
  if (rateLimit.Pass(now)) return true;
  Log("Event rate limit reached. Dropping kprob: %s%s\n", eventNamespace, shortId);
  return false;
}

}  // namespace rynd
