// Crashes of programs: the kernel's process connector. Needs CAP_NET_ADMIN on older kernels, and the initial
// namespaces.
#include <arpa/inet.h>
#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/uniqueFd.h"
#include "hosted/log/log.h"
#include "models/crashModel.h"
#include "sink/clock.h"
#include "sink/textFile.h"
#include "sources/kernelDatagrams.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

/// Let through what begins a core dump, and ends by a signal: nobody is woken by the other exits. The filter's loads
/// are big-endian.
int FilterEvents(int fd) {
  constexpr uint32_t kWhat = sizeof(nlmsghdr) + sizeof(cn_msg);
  constexpr uint32_t kExitCode = kWhat + offsetof(proc_event, event_data.exit.exit_code);
  constexpr uint32_t kAck = 0, kCoreDump = 0x40000000, kExit = 0x80000000, kSignal = 0x7f, kAll = 0xffffffff;
  sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kWhat),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htonl(kCoreDump), 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htonl(kAck), 3, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htonl(kExit), 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kExitCode),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, htonl(kSignal), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, kAll),
      BPF_STMT(BPF_RET | BPF_K, 0),
  };
  const sock_fprog program{sizeof code / sizeof code[0], code};
  return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0 ? 0 : errno;
}

/// Ask for process events. The short form: older kernels ignore the other.
int Subscribe(int fd) {
  nlmsghdr header{};
  cn_msg message{};
  const uint32_t operation = PROC_CN_MCAST_LISTEN;
  std::array<std::byte, sizeof header + sizeof message + sizeof operation> request{};
  header.nlmsg_len = request.size();
  header.nlmsg_type = NLMSG_DONE;
  message.id = {CN_IDX_PROC, CN_VAL_PROC};
  message.len = sizeof operation;
  std::memcpy(request.data(), &header, sizeof header);
  std::memcpy(request.data() + sizeof header, &message, sizeof message);
  std::memcpy(request.data() + sizeof header + sizeof message, &operation, sizeof operation);
  return send(fd, request.data(), request.size(), 0) < 0 ? errno : 0;
}

std::string LinkTarget(const std::string &path) {
  std::array<char, 4096> target;
  const ssize_t length = readlink(path.c_str(), target.data(), target.size());
  return length < 0 ? "" : std::string(target.data(), static_cast<size_t>(length));
}

/// What is to be read of process `id` while it is there.
CrashFacts ReadFacts(int32_t id) {
  constexpr size_t kMost = 65536;
  const std::string folder = "/proc/" + std::to_string(id);
  CrashFacts facts;
  std::string limits;
  // In the order of what is missed most when the process is gone.
  ReadTextFile(folder + "/comm", kMost, &facts.name);
  if (facts.name.ends_with('\n')) facts.name.pop_back();
  if (ReadTextFile(folder + "/limits", kMost, &limits) == 0) facts.coreLimit = ParseCoreLimit(limits);
  facts.folder = LinkTarget(folder + "/cwd");
  facts.executable = LinkTarget(folder + "/exe");
  std::string status;
  struct stat owner {};
  if (ReadTextFile(folder + "/status", kMost, &status) == 0) {
    const size_t user = status.find("\nUid:\t"), group = status.find("\nGid:\t");
    if (user != std::string::npos) facts.user = static_cast<uint32_t>(std::strtoul(&status[user + 6], nullptr, 10));
    if (group != std::string::npos) facts.group = static_cast<uint32_t>(std::strtoul(&status[group + 6], nullptr, 10));
    // Of a program that must not be looked into the files are root's.
    if (stat(folder.c_str(), &owner) == 0) facts.isDumpable = owner.st_uid == facts.user;
  }
  facts.corePattern = ReadLine("/proc/sys/kernel/core_pattern");
  facts.usesPid = ReadLine("/proc/sys/kernel/core_uses_pid") == "1";
  facts.host = ReadLine("/proc/sys/kernel/hostname");
  facts.atS = WallClockUs() / 1'000'000;
  return facts;
}

class Crashes : public Source {
 public:
  const char *Name() const override { return "crashes"; }

  int Start(Host *host, int64_t /*nowNs*/, std::string *reason) override {
    model_ = std::make_unique<CrashModel>(host);
    *reason = "no process connector: it needs CAP_NET_ADMIN and the initial network namespace";
    socket_.Reset(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_CONNECTOR));
    if (!socket_) return errno;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = CN_IDX_PROC;
    if (bind(socket_.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) return errno;
    if (const int error = FilterEvents(socket_.Get()); error != 0) return error;
    if (const int error = Subscribe(socket_.Get()); error != 0) return error;
    // Where the request is not heard nothing ever comes.
    pollfd answer{socket_.Get(), POLLIN, 0};
    constexpr int kAnswerMs = 500;
    if (poll(&answer, 1, kAnswerMs) != 1) return EACCES;
    // A program that crashes is gone in no time: its name is read in front of everybody else's work, where that may be.
    constexpr int kNice = -10;
    static_cast<void>(setpriority(PRIO_PROCESS, 0, kNice));
    return host->Watch(socket_.Get(), EPOLLIN);
  }

  void Ready(int /*fd*/, uint32_t /*events*/, int64_t /*nowNs*/) override {
    std::array<std::byte, 1024> buffer;
    const auto take = [this](std::span<const std::byte> datagram) { Take(datagram); };
    if (!ReceiveFromKernel(socket_.Get(), buffer, take)) {
      hosted::Log("Process events were lost: a crash may go untold.");
    }
  }

 private:
  void Take(std::span<const std::byte> datagram) {
    const auto event = ParseProcessEvent(datagram);
    if (!event) return;
    if (event->isExit) {
      model_->Exit(*event);
    } else {
      model_->Dumping(*event, ReadFacts(event->process));
    }
  }

  base::UniqueFd socket_;
  std::unique_ptr<CrashModel> model_;
};

}  // namespace

std::unique_ptr<Source> MakeCrashes() {
  return std::make_unique<Crashes>();
}

}  // namespace rynlinuxd
