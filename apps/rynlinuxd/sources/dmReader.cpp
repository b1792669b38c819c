#include "sources/dmReader.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/dm-ioctl.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <vector>

#include "loop/capabilities.h"

namespace rynlinuxd {
namespace {

constexpr char kControl[] = "/dev/mapper/control", kLoaded[] = "/sys/class/misc/device-mapper";
constexpr size_t kMostAnswer = 65536;

// An answer is "NUMBER\0NAME\0UUID\0STATUS\0TABLE"; of what is no multipath device the number alone. The last answer to
// a question is one NUL.
constexpr std::string_view kEnd("\0", 1);

uint64_t DeviceOf(const std::string &number) {
  unsigned majorNumber = 0, minorNumber = 0;
  const char *end = number.data() + number.size();
  const auto [colon, error] = std::from_chars(number.data(), end, majorNumber);
  if (error == std::errc() && colon != end) std::from_chars(colon + 1, end, minorNumber);
  return makedev(majorNumber, minorNumber);
}

/// In the process: requests of the device mapper, and their answers.
class Mapper {
 public:
  explicit Mapper(int control) : control_(control) {}

  /// The devices there are.
  std::vector<uint64_t> List() {
    std::vector<uint64_t> devices;
    if (!Request(DM_LIST_DEVICES, 0, 0)) return devices;
    for (size_t at = Head()->data_start; at + sizeof(dm_name_list) <= Head()->data_size;) {
      dm_name_list entry;
      std::memcpy(&entry, buffer_.data() + at, sizeof entry);
      if (entry.dev == 0) break;
      devices.push_back(entry.dev);
      if (entry.next == 0) break;
      at += entry.next;
    }
    return devices;
  }

  std::string Describe(uint64_t device) {
    std::string answer = std::to_string(major(device)) + ':' + std::to_string(minor(device));
    std::string status, table;
    // Without flushing, which would wait for a device without paths.
    if (!ReadTarget(device, DM_NOFLUSH_FLAG, &status)) return answer;
    const std::string name = Head()->name, uuid = Head()->uuid;
    if (!ReadTarget(device, DM_NOFLUSH_FLAG | DM_STATUS_TABLE_FLAG, &table)) return answer;
    for (const std::string &part : {name, uuid, status, table}) answer.append(1, '\0').append(part);
    return answer;
  }

  bool MayAsk() { return Request(DM_LIST_DEVICES, 0, 0); }

 private:
  dm_ioctl *Head() { return reinterpret_cast<dm_ioctl *>(buffer_.data()); }

  bool Request(unsigned long command, uint64_t device, uint32_t flags) {
    constexpr size_t kMost = size_t{16} << 20;
    for (size_t size = 16384; size <= kMost; size *= 4) {
      buffer_.assign(size, '\0');
      *Head() = {};
      Head()->version[0] = DM_VERSION_MAJOR;
      Head()->data_size = static_cast<uint32_t>(size);
      Head()->data_start = sizeof(dm_ioctl);
      Head()->dev = device;
      Head()->flags = flags;
      if (ioctl(control_, command, buffer_.data()) != 0) return false;
      if ((Head()->flags & DM_BUFFER_FULL_FLAG) == 0) return true;
    }
    return false;
  }

  /// The text of a device's one target, if that is a multipath target.
  bool ReadTarget(uint64_t device, uint32_t flags, std::string *text) {
    if (!Request(DM_TABLE_STATUS, device, flags) || Head()->target_count != 1) return false;
    const size_t at = Head()->data_start;
    if (at + sizeof(dm_target_spec) >= buffer_.size()) return false;
    dm_target_spec target;
    std::memcpy(&target, buffer_.data() + at, sizeof target);
    const char *words = buffer_.data() + at + sizeof target;
    *text = std::string(words, strnlen(words, buffer_.size() - at - sizeof target));
    return std::string_view(target.target_type, strnlen(target.target_type, sizeof target.target_type)) == "multipath";
  }

  const int control_;
  std::vector<char> buffer_;
};

/// The process's whole life: it ends with its parent, whose end closes the socket.
[[noreturn]] void Serve(int socket, int control) {
  // Nothing of the parent's is kept open here; the two go where they are out of the way.
  constexpr int kSocket = 3, kControlFd = 4, kFirstOther = 5, kAside = 10;
  const int socketAside = fcntl(socket, F_DUPFD, kAside), controlAside = fcntl(control, F_DUPFD, kAside);
  dup2(socketAside, kSocket);
  dup2(controlAside, kControlFd);
  close_range(kFirstOther, ~0U, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (KeepOnlyCapability(CAP_SYS_ADMIN) != 0) _exit(1);
  Mapper mapper(kControlFd);
  const auto answer = [](std::string_view text) {
    if (send(kSocket, text.data(), text.size(), MSG_NOSIGNAL) < 0 && errno != EMSGSIZE) _exit(0);
  };
  while (true) {
    std::array<char, 64> question;
    const ssize_t got = recv(kSocket, question.data(), question.size(), 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) _exit(0);
    const std::string number(question.data(), static_cast<size_t>(got) - 1);
    if (number.empty()) {
      for (const uint64_t device : mapper.List()) answer(mapper.Describe(device));
    } else {
      std::string text = mapper.Describe(DeviceOf(number));
      answer(text.find('\0') == std::string::npos ? number : text);
    }
    answer(kEnd);
  }
}

}  // namespace

DmReader::~DmReader() {
  socket_.Reset();
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
}

int DmReader::Start(std::string *reason) {
  *reason = "no device mapper is loaded: start rynlinuxd again when one is";
  if (access(kLoaded, F_OK) != 0) return errno;
  base::UniqueFd control;
  {
    const RaisedCapability reach(CAP_DAC_OVERRIDE);
    *reason = std::string(kControl) + " cannot be opened: it needs CAP_DAC_OVERRIDE";
    control.Reset(open(kControl, O_RDWR | O_CLOEXEC));
    if (!control) return errno;
  }
  *reason = "the device mapper does not answer: it needs CAP_SYS_ADMIN";
  if (!Mapper(control.Get()).MayAsk()) return errno;
  int ends[2];
  *reason = "no process to ask the device mapper";
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return errno;
  socket_.Reset(ends[0]);
  const base::UniqueFd other(ends[1]);
  process_ = fork();
  if (process_ < 0) return errno;
  if (process_ == 0) Serve(other.Get(), control.Get());
  return 0;
}

bool DmReader::Ask(const std::string &number) {
  if (isBusy_ || !socket_) return false;
  // With a byte behind it, since an empty question would be the end.
  const std::string question = number + '\n';
  isBusy_ = send(socket_.Get(), question.data(), question.size(), MSG_NOSIGNAL | MSG_DONTWAIT) >= 0;
  return isBusy_;
}

bool DmReader::Receive(const Take &take) {
  std::vector<char> buffer(kMostAnswer);
  while (socket_) {
    const ssize_t got = recv(socket_.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN) return true;
    if (got <= 0) break;
    const std::string_view answer(buffer.data(), static_cast<size_t>(got));
    if (answer == kEnd) {
      isBusy_ = false;
      take("", std::nullopt);
      continue;
    }
    std::array<std::string, 5> parts;
    size_t at = 0;
    for (std::string &part : parts) {
      const size_t end = std::min(answer.find('\0', at), answer.size());
      if (at <= answer.size()) part = answer.substr(at, end - at);
      at = end + 1;
    }
    const auto &[number, name, uuid, status, table] = parts;
    std::optional<DmDevice> device = ParseDmDevice(status, table);
    if (device) {
      device->number = number;
      device->name = DmName(uuid, name);
    }
    take(number, device);
  }
  socket_.Reset();
  return false;
}

}  // namespace rynlinuxd
