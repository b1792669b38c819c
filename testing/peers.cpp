#include "testing/peers.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "correlators/catalog.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "librynsubmit/rynsubmit.h"
#include "testing/daemon.h"
#include "testing/ledger.h"

namespace testing_support {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned kContexts = 29;

/// Sleep for `time`, or until `stop`.
void SleepFor(milliseconds time, const std::atomic<bool> &stop) {
  for (const auto end = Clock::now() + time; !stop && Clock::now() < end;) {
    std::this_thread::sleep_for(milliseconds(10));
  }
}

milliseconds Between(std::mt19937 *random, int low, int high) {
  return milliseconds(std::uniform_int_distribution<int>(low, high)(*random));
}

/// Ids that post nothing without their arguments, ids without a handler, ids that nobody wants.
std::vector<std::string> QuietIds() {
  std::vector<std::string> ids;
  for (const rynd::PostRow *row : rynd::AllPostRows()) {
    const std::string id = row->id;
    if (row->fields.types[0] != rynd::ArgType{}) ids.push_back(id);
    ids.push_back(id + ".unheard.of");
    ids.push_back("ryn.nobody" + id.substr(3));
  }
  return ids;
}

/// The context that observation number `n` goes to: each numbered event has one of its own, as its numbers must rise.
unsigned ContextOf(uint64_t n) {
  if (n % 128 < kNumberedEvents.size()) return static_cast<unsigned>(n % 128);
  return static_cast<unsigned>(n % kContexts);
}

/// The observation number `n`, with `message`.
std::vector<std::byte> NthObservation(uint64_t n, const std::string &message, PeerCounts *counts) {
  static const std::vector<std::string> quiet = QuietIds();
  if (n % 128 == 0) {
    const std::string number = Arrivals::Text(counts->numbered);
    return MakeRecord("ryn.storage.apd.start", {number}, {}, message);
  }
  if (n % 128 == 1) {
    const std::string number = Arrivals::Text(counts->numbered++);
    return MakeRecord("ryn.bootdevice.pdl.v2", {number}, {}, message);
  }
  if (n % 2048 == 2) return MakeRecord("ryn.net.hynic.linkstate.down", {"hynic" + std::to_string(n % 7)}, {}, message);
  if (n % 2048 == 3) return MakeRecord("ryn.nobody.large", {std::string(100'000, 'x')}, {}, message);
  return MakeRecord(quiet[n % quiet.size()], {}, {}, message);
}

}  // namespace

void SendObservations(const TestRoot &root, unsigned perSecond, PeerCounts *counts, const std::atomic<bool> &stop) {
  std::vector<base::UniqueFd> contexts;
  for (unsigned id = 0; id < kContexts; ++id) contexts.push_back(ConnectKernel(root, id));
  std::array<uint64_t, kContexts> sent{};
  Clock::time_point next = Clock::now();
  while (!stop) {
    const uint64_t n = counts->observations;
    const unsigned id = ContextOf(n);
    if (n % 10'007 == 0) contexts[id] = ConnectKernel(root, id);
    const std::string message = "peer-" + std::to_string(id) + "-" + std::to_string(sent[id]++) + "-";
    if (!SendRecord(contexts[id], NthObservation(n, message, counts))) {
      counts->problems.Add("observation " + std::to_string(n) + " could not be sent: " + std::to_string(errno));
    }
    ++counts->observations;
    next += std::chrono::nanoseconds(1'000'000'000 / perSecond);
    const Clock::time_point now = Clock::now();
    if (now < next) {
      std::this_thread::sleep_until(next);
    } else if (now > next + std::chrono::seconds(1)) {
      next = now;  // held up for long: what is late is not sent in one burst
    }
  }
}

void SubmitObservations(unsigned seed, PeerCounts *counts, const std::atomic<bool> &stop) {
  std::mt19937 random(seed);
  while (!stop) {
    rynsubmit *connection = nullptr;
    ++counts->userStarts;
    int error = rynsubmit_connect(10'000, &connection);
    for (unsigned i = 0; error == 0 && !stop && i < random() % 300; ++i) {
      const rynsubmit_argument arguments[] = {rynsubmit_string("a text"), rynsubmit_u64(i)};
      error = rynsubmit_submit(connection, "ryn.user.soak", "from a program", arguments, 2);
      if (error == 0) ++counts->submitted;
      SleepFor(milliseconds(10), stop);
    }
    if (error != 0) counts->problems.Add("a program's submit failed: " + std::to_string(error));
    rynsubmit_close(connection);
    SleepFor(Between(&random, 0, 500), stop);
  }
}

void SendGarbage(const TestRoot &root, unsigned seed, const std::atomic<bool> &stop) {
  std::mt19937 random(seed);
  while (!stop) {
    {
      const base::UniqueFd user = ConnectUser(root);
      std::vector<std::byte> record = MakeRecord("ryn.user.soak", {"a text"});
      record.resize(random() % record.size());
      SendRecord(user, record);
    }
    SleepFor(Between(&random, 50, 500), stop);
  }
}

void ServeEvents(const TestRoot &root, unsigned seed, milliseconds most, Arrivals *arrivals, PeerCounts *counts,
                 const std::atomic<bool> &stop) {
  std::mt19937 random(seed);
  const int ms = static_cast<int>(most.count());
  hosted::MakeFolders(root / "/var/run/corvane", 0755);
  while (!stop) {
    ++counts->agentStarts;
    if (random() % 3 != 0) {
      const EventListener agent(root / hosted::kEventSocket,
                                [&](const std::string &record) { arrivals->Take(record); });
      SleepFor(Between(&random, 0, ms), stop);
    } else {
      base::UniqueFd socket;
      hosted::ServeUnixSocket(root / hosted::kEventSocket, SOCK_STREAM, 0660, &socket);
      SleepFor(Between(&random, 0, ms / 4), stop);  // stopped: who comes waits
      unlink((root / hosted::kEventSocket).c_str());
      shutdown(socket.Get(), SHUT_RDWR);
      // What the kernel has taken for it dies with it.
      for (base::UniqueFd one; one.Reset(accept(socket.Get(), nullptr, nullptr)), one;) ++counts->killed;
    }
    SleepFor(Between(&random, 0, ms / 4), stop);
  }
}

void ServeLog(const TestRoot &root, PeerCounts *counts, const std::atomic<bool> &stop) {
  std::mt19937 random(2);
  std::vector<char> record(300'000);
  hosted::MakeFolders(root / "/dev", 0755);
  while (!stop) {
    ++counts->logStarts;
    base::UniqueFd socket;
    if (hosted::ServeUnixSocket(root / hosted::kLogSocket, SOCK_DGRAM, 0666, &socket) != 0)
      counts->problems.Add("no log");
    for (const auto end = Clock::now() + Between(&random, 1'000, 20'000); !stop && Clock::now() < end;) {
      pollfd set{socket.Get(), POLLIN, 0};
      if (poll(&set, 1, 100) > 0) recv(socket.Get(), record.data(), record.size(), MSG_DONTWAIT);
    }
    if (random() % 2 == 0) SleepFor(Between(&random, 100, 3'000), stop);  // it hangs
    socket.Reset();
    if (random() % 2 == 0) SleepFor(Between(&random, 100, 2'000), stop);  // nobody is there
  }
}

namespace {

/// What one trace client has seen.
class Followed {
 public:
  explicit Followed(PeerCounts *counts) : counts_(counts) {}
  ~Followed() {
    if (missed_ > lost_)
      counts_->problems.Add("a trace client missed " + std::to_string(missed_ - lost_) + " lines unsaid");
    counts_->traceLost += lost_;
  }
  void Take(const std::string &line) {
    if (const size_t lost = line.find(" LOST "); lost != std::string::npos) lost_ += std::stoull(line.substr(lost + 6));
    const size_t at = line.find(" peer-");
    if (at == std::string::npos) return;
    size_t length = 0;
    const size_t context = std::stoul(line.substr(at + 6), &length);
    const uint64_t number = std::stoull(line.substr(at + 7 + length));
    uint64_t &next = next_.at(context);
    if (next > 0 && number != next) missed_ += number - next;
    next = number + 1;
  }

 private:
  PeerCounts *counts_;
  std::array<uint64_t, kContexts> next_{};  ///< of each context; 0: none seen
  uint64_t missed_ = 0, lost_ = 0;
};

}  // namespace

void FollowTrace(const TestRoot &root, unsigned seed, PeerCounts *counts, const std::atomic<bool> &stop) {
  std::mt19937 random(seed);
  while (!stop) {
    ++counts->traceStarts;
    const base::UniqueFd client = ConnectTrace(root);
    Followed followed(counts);
    std::string text;
    if (random() % 3 == 0) SleepFor(Between(&random, 100, 8'000), stop);  // it falls behind
    for (const auto end = Clock::now() + Between(&random, 1, 10'000); !stop && Clock::now() < end;) {
      pollfd set{client.Get(), POLLIN, 0};
      if (poll(&set, 1, 100) <= 0) continue;
      char part[65536];
      const ssize_t count = recv(client.Get(), part, sizeof part, 0);
      if (count <= 0) {
        counts->problems.Add("a trace client was hung up on");
        break;
      }
      text.append(part, static_cast<size_t>(count));
      for (size_t eol; (eol = text.find('\n')) != std::string::npos; text.erase(0, eol + 1)) {
        followed.Take(text.substr(0, eol));
      }
    }
  }
}

std::string PeerGap(const nlohmann::json &statistics, const Arrivals &arrivals, const PeerCounts &counts,
                    uint64_t excused) {
  std::string gap = LedgerGap(statistics);
  if (!gap.empty()) return gap;
  gap += Difference("observations read", ReadFromKernel(statistics), counts.observations);
  for (const auto &context : statistics.at("contexts")) {
    if (context.at("name") == "user") gap += Difference("submitted ones read", context.at("records"), counts.submitted);
  }
  const auto &events = statistics.at("events");
  gap += Difference("events sent", events.at("sent"), arrivals.Events() + counts.killed);
  uint64_t missing = 0, said = events.at("waiting").get<uint64_t>() + counts.killed;
  for (const char *name : kNumberedEvents) missing += arrivals.Missing(name, counts.numbered);
  for (const auto &dropped : events.at("dropped")) said += dropped.get<uint64_t>();
  if (missing > said && missing - said > excused) gap += std::to_string(missing - said) + " numbers are missing\n";
  return gap;
}

}  // namespace testing_support
