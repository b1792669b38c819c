#include "core/serviceNotify.h"

#include <cstring>

#include "base/serviceNotify.h"
#include "core/basics/log.h"

namespace rynd {

void NotifyService(const char *state) {
  if (const int status = base::NotifyService(state); status != 0) {
    Log("Cannot tell the service manager at %s: %s\n", base::ServiceSocket(), strerror(status));
  }
}

}  // namespace rynd
