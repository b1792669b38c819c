// The front of the writer's thread.
#include "mgmtd/store/writer.h"

#include "mgmtd/store/writerWorker.h"

namespace mgmtd {

Writer::Writer(WriterOptions options, Feed *feed) : worker_(std::make_unique<Worker>(std::move(options), feed)) {}

Writer::~Writer() {
  Stop(std::chrono::milliseconds(0));
}

std::string Writer::Start() {
  if (std::string refusal = worker_->Open(); !refusal.empty()) return refusal;
  worker_->thread = std::thread([worker = worker_.get()] { worker->Run(); });
  return "";
}

void Writer::Stop(std::chrono::milliseconds limit) {
  if (!worker_->thread.joinable()) return;
  worker_->Queue().Stop(std::chrono::steady_clock::now() + limit);
  worker_->thread.join();
}

bool Writer::Add(ReceivedRecord record) {
  return worker_->Queue().Put(std::move(record));
}

std::optional<size_t> Writer::Acknowledge(int64_t eventId, const std::string &subject, const std::string &user) {
  std::future<size_t> ended = worker_->Queue().Put(AckRequest{eventId, subject, user, {}});
  if (ended.wait_for(std::chrono::seconds(2)) != std::future_status::ready) return std::nullopt;
  try {
    return ended.get();
  } catch (const std::future_error &) {
    return std::nullopt;  // the thread has ended
  }
}

void Writer::SetSinkPosition(const std::string &sink, const Marks &passed) {
  worker_->SetSinkPosition(sink, passed);
}

std::optional<Marks> Writer::SinkPosition(const std::string &sink) const {
  return worker_->SinkPosition(sink);
}

StoreHealth Writer::Health() const {
  return worker_->Health();
}

}  // namespace mgmtd
