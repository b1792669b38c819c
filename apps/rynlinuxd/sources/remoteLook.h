// Looks at file systems that somebody else answers for, in a process of its own: such a look may never end.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "base/uniqueFd.h"
#include "loop/source.h"
#include "models/usageModel.h"

namespace rynlinuxd {

/// How a look at one mount ended.
struct Look {
  int error = 0;  ///< ETIMEDOUT: it does not answer
  SpaceUse usage{};
};

/// Look at what is mounted at `mount.point`. 0 or an errno value; ESTALE when it is another file system by now.
int LookAt(const Mount &mount, SpaceUse *usage);

class RemoteLook {
 public:
  static constexpr int64_t kPatienceNs = 5 * kSecondNs;
  static constexpr size_t kMostStuck = 64;  ///< processes that cannot even be ended

  using OnLook = std::function<void(const Mount &mount, const Look &look)>;
  explicit RemoteLook(OnLook onLook) : onLook_(std::move(onLook)) {}
  ~RemoteLook();
  RemoteLook(const RemoteLook &) = delete;
  RemoteLook &operator=(const RemoteLook &) = delete;

  /// Look at `mounts`, unless an earlier round is still under way. Those that a process is stuck in are left out.
  void Begin(std::vector<Mount> mounts, Host *host, int64_t nowNs);
  /// The descriptor that Begin() has the host watch; -1 for none.
  int Descriptor() const { return results_.Get(); }
  void Ready(int64_t nowNs);
  int64_t Due() const { return deadlineNs_; }
  void OnDue(int64_t nowNs);

 private:
  struct Stuck {
    pid_t process;
    std::string point;
  };
  void StartProcess(int64_t nowNs);
  void EndProcess();
  void Reap();

  const OnLook onLook_;
  Host *host_ = nullptr;
  std::vector<Mount> mounts_;
  size_t next_ = 0;  ///< whose result comes next
  base::UniqueFd results_;
  pid_t process_ = -1;
  int64_t deadlineNs_ = kNever;
  std::vector<Stuck> stuck_;
};

}  // namespace rynlinuxd
