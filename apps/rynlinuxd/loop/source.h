// A source: one thing of the host that is watched. All of them run on the one thread.
#pragma once

#include <cstdint>
#include <string>

#include "sink/ledger.h"
#include "sink/report.h"

namespace rynlinuxd {

constexpr int64_t kNever = INT64_MAX;
constexpr int64_t kSecondNs = 1'000'000'000;

struct Options;

/// What a source is given.
class Host : public Reporter {
 public:
  /// Have `Ready` called whenever epoll `events` come for `fd`. 0 or an errno value. A descriptor that is closed is not
  /// watched any more.
  virtual int Watch(int fd, uint32_t events) = 0;
  virtual const Options &GetOptions() const = 0;
  virtual const Ledger &GetLedger() const = 0;
};

class Source {
 public:
  Source() = default;
  virtual ~Source() = default;
  Source(const Source &) = delete;
  Source &operator=(const Source &) = delete;

  /// As in --sources.
  virtual const char *Name() const = 0;
  /// Subscribe and take a snapshot; `host` is borrowed for the source's life. 0; or an errno value and in `reason` what
  /// is missing and what would change that. Nothing else is called after a failure.
  virtual int Start(Host *host, int64_t nowNs, std::string *reason) = 0;
  /// A watched descriptor is ready.
  virtual void Ready(int /*fd*/, uint32_t /*events*/, int64_t /*nowNs*/) {}
  /// When to call OnDue(), on the clock of `nowNs`.
  virtual int64_t Due() const { return kNever; }
  virtual void OnDue(int64_t /*nowNs*/) {}
  /// Tell all states again: the daemon is a new one.
  virtual void Retell(int64_t /*nowNs*/) {}
  /// This program is told to end.
  virtual void OnStop() {}
};

}  // namespace rynlinuxd
