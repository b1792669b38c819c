#include "sink/sink.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/terminalText.h"
#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"
#include "hosted/records/rawRecord.h"
#include "sink/clock.h"

namespace rynlinuxd {

void Sink::Tell(Report report) {
  for (const std::string &key : report.ends) outbox_.Cancel(key);
  if (!ledger_->Admit(report, BootClockS())) {
    // What waits says otherwise and was never sent: with this it is as if it had not been.
    outbox_.Cancel(report.key);
    return;
  }
  outbox_.Add(std::move(report));
  Flush();
}

void Sink::Connect(int64_t nowNs) {
  if (dryRun_ || link_.IsConnected()) return;
  reconnectNs_ = nowNs + kReconnectNs;
  link_.WatchFolder();
  if (link_.Connect() != 0) return;
  if (link_.Daemon() != ledger_->Daemon()) {
    ledger_->MarkStale();
    ledger_->SetDaemon(link_.Daemon());
    retell_();
  }
  Flush();
}

void Sink::Ready(int fd, int64_t nowNs) {
  if (fd == link_.Notifier()) {
    link_.TakeNotice();
    Connect(nowNs);
  } else {
    Flush();
  }
}

int64_t Sink::Due() const {
  return dryRun_ || link_.IsConnected() ? INT64_MAX : reconnectNs_;
}

void Sink::Flush() {
  if (dryRun_) {
    for (; !outbox_.Empty(); outbox_.Pop()) {
      Print(outbox_.Front());
      ledger_->RecordTold(outbox_.Front(), BootClockS());
    }
    return;
  }
  if (link_.IsConnected()) Send();
}

void Sink::Send() {
  while (!outbox_.Empty()) {
    const Report &report = outbox_.Front();
    for (const HostFile &file : report.files) {
      std::string held;
      if (hosted::ReadHostText(file.path, &held) != 0 || held != file.text) hosted::WriteHostText(file.path, file.text);
    }
    const auto bytes = hosted::EncodeRecord({++sequence_, WallClockUs(), report.id, report.message, report.arguments});
    const int error = link_.Send(bytes);
    if (error == EMSGSIZE) {
      hosted::Log("%s is too long to be told: %zu bytes", report.id.c_str(), bytes.size());
    } else if (error != 0) {
      return;
    } else {
      ledger_->RecordTold(report, BootClockS());
    }
    outbox_.Pop();
  }
  if (const uint64_t lost = outbox_.TakeLost(); lost > 0) {
    const std::string text = std::to_string(lost) + " observations were lost while the daemon did not take them";
    hosted::Log("%s", text.c_str());
    Tell(External(Severity::kWarning, "rynlinuxd", text));
  }
}

void Sink::Print(const Report &report) const {
  std::string line = report.id;
  for (const hosted::RawArgument &argument : report.arguments) {
    if (argument.kind == hosted::ArgumentKind::kString) {
      line += " \"";
      base::AppendForTerminal(argument.text, &line);
      line += '"';
    } else if (argument.kind == hosted::ArgumentKind::kSigned) {
      line += ' ' + std::to_string(static_cast<int64_t>(argument.bits));
    } else {
      line += ' ' + std::to_string(argument.bits);
    }
  }
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

}  // namespace rynlinuxd
