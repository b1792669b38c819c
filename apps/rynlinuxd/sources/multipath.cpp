// Paths of storage devices that fail, and devices without any: the kernel's messages, and the device mapper's answers.
// Needs CAP_SYS_ADMIN, which one small process keeps, and CAP_DAC_OVERRIDE at the start.
#include <sys/epoll.h>

#include <algorithm>
#include <deque>

#include "hosted/log/log.h"
#include "models/storage/multipathModel.h"
#include "sink/clock.h"
#include "sources/dmReader.h"
#include "sources/sources.h"
#include "sources/ueventSocket.h"

namespace rynlinuxd {
namespace {

class Multipath : public Source {
 public:
  const char *Name() const override { return "multipath"; }

  int Start(Host *host, int64_t /*nowNs*/, std::string *reason) override {
    model_ = std::make_unique<MultipathModel>("/sys", &host->GetLedger(), host);
    *reason = "the kernel's messages about devices cannot be heard";
    if (const int error = events_.Open(); error != 0) return error;
    if (const int error = mapper_.Start(reason); error != 0) return error;
    // What it answers comes in front of the messages that are waiting by then.
    mapper_.Ask("");
    if (const int error = host->Watch(mapper_.Descriptor(), EPOLLIN); error != 0) return error;
    return host->Watch(events_.Descriptor(), EPOLLIN);
  }

  void Ready(int fd, uint32_t /*events*/, int64_t nowNs) override {
    if (fd == events_.Descriptor()) {
      if (!events_.Receive([&](const Uevent &event) { model_->Change(event, nowNs); })) {
        hosted::Log("Messages about devices were lost: asking the device mapper for all.");
        model_->AskForAll();
        isLost_ = true;
      }
    } else if (!mapper_.Receive([&](const std::string &number, const std::optional<DmDevice> &device) {
                 if (!number.empty()) model_->Answer(number, device, nowNs, BootClockS());
               })) {
      hosted::Log(
          "The process that asks the device mapper has ended: devices without paths go untold; restart rynlinuxd.");
      isBlind_ = true;
    }
    Ask();
  }

  int64_t Due() const override { return isBlind_ ? kNever : model_->Due(); }
  void OnDue(int64_t nowNs) override {
    model_->OnDue(nowNs);
    Ask();
  }
  void Retell(int64_t /*nowNs*/) override { model_->Retell(); }

 private:
  void Ask() {
    for (std::string &number : model_->TakeQuestions()) {
      if (std::find(questions_.begin(), questions_.end(), number) == questions_.end())
        questions_.push_back(std::move(number));
    }
    if (isLost_ && mapper_.Ask("")) {
      isLost_ = false;
    } else if (!questions_.empty() && mapper_.Ask(questions_.front())) {
      questions_.pop_front();
    }
  }

  UeventSocket events_;
  DmReader mapper_;
  std::unique_ptr<MultipathModel> model_;
  std::deque<std::string> questions_;
  bool isLost_ = false, isBlind_ = false;
};

}  // namespace

std::unique_ptr<Source> MakeMultipath() {
  return std::make_unique<Multipath>();
}

}  // namespace rynlinuxd
