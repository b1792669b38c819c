// Names and values of the host tree, the configuration store and the log: what is written is read back or refused, and
// no text breaks a log record's framing. One thread.
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/uniqueFd.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"
#include "hosted/paths.h"
#include "platform/configStore.h"
#include "platform/system.h"

namespace {

void Check(bool holds) {
  if (!holds) abort();
}

/// A name is one component, and is listed as itself.
void TryTree(FuzzedDataProvider *input) {
  const std::string name = input->ConsumeRandomLengthString(80);
  const std::string component = hosted::HostComponent(name.c_str());
  Check(component.find('/') == std::string::npos && component[0] != '.' && !component.empty());
  const std::string folder = hosted::HostTreePath("fuzz");
  std::filesystem::remove_all(folder);
  std::string value = input->ConsumeRandomLengthString(80);
  if (component.size() > NAME_MAX) return;
  if (hosted::WriteHostText("fuzz/" + component, value) == 0) {
    std::vector<std::string> names;
    Check(hosted::ListHostFolder("fuzz", &names) == 0);
    Check(names.size() == 1 && names[0] == name.c_str());
  }
  std::ofstream(folder + "/" + component) << value;
  std::string text;
  hosted::ReadHostText("fuzz/" + component, &text);
  int64_t numbers[3];
  const auto count = input->ConsumeIntegralInRange<size_t>(1, 3);
  if (hosted::ReadHostIntegers("fuzz/" + component, -5, 100, {numbers, count}) != 0) return;
  for (size_t i = 0; i < count; ++i) Check(numbers[i] >= -5 && numbers[i] <= 100);
}

/// What is committed is what is fetched.
void TryStore(FuzzedDataProvider *input) {
  using namespace ConfigStore;
  const std::string json = input->ConsumeRandomLengthString(200), name = input->ConsumeRandomLengthString(20);
  const std::string value = input->ConsumeRandomLengthString(60), key = input->ConsumeRandomLengthString(20);
  Store *store = nullptr;
  Check(GetStore(0, &store) == 0);
  Object *object = nullptr;
  if (CreateObject(key.c_str(), "g", "c", "i", input->ConsumeBool() ? json.c_str() : "{}", &object) == 0) {
    const bool isSet = SetValueStr(object, name.c_str(), value.c_str()) == 0;
    Object *fetched = nullptr;
    if (SetCachedData(store, object) == 0 && Get(store, key.c_str(), "g", "c", "i", &fetched) == 0 && isSet) {
      char *read = nullptr;
      Check(GetValueStr(fetched, name.c_str(), &read) == 0 && value == read);
      free(read);
    }
    DestroyConfigStoreObject(fetched);
  }
  DestroyConfigStoreObject(object);
  // Files that somebody has changed.
  for (const auto &entry : std::filesystem::recursive_directory_iterator(hosted::RootPath("/var/lib/corvane"))) {
    if (!entry.is_regular_file() || entry.path().string().find("configstore") == std::string::npos) continue;
    std::ofstream(entry.path()) << json;
    Object *fetched = nullptr;
    Get(store, key.c_str(), "g", "c", "i", &fetched);
    DestroyConfigStoreObject(fetched);
    std::filesystem::remove(entry.path());
  }
  DestroyStore(store);
}

[[gnu::format(printf, 2, 3)]] void LogWith(const HykSyslogParam *params, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Hyk_SyslogExtended(24, 6, "", "", "", "amb", params, format, arguments);
  va_end(arguments);
}

/// Log to whom there is: a log, a journal, or standard error as a file, a pipe or a socket.
void TryLog(FuzzedDataProvider *input) {
  const unsigned who = input->ConsumeIntegralInRange<unsigned>(0, 4);
  base::UniqueFd server, peer, other;
  const std::string path = hosted::RootPath(who == 0 ? hosted::kLogSocket : hosted::kJournalSocket);
  hosted::MakeFolders(path.substr(0, path.rfind('/')), 0755);
  if (who < 2) Check(hosted::ServeUnixSocket(path, SOCK_DGRAM, 0600, &server) == 0);
  const base::UniqueFd before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 10));
  int ends[2] = {-1, -1};
  if (who == 2) ends[0] = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (who == 3) Check(pipe2(ends, O_CLOEXEC) == 0), std::swap(ends[0], ends[1]);
  if (who == 4) Check(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  peer.Reset(ends[0]);
  other.Reset(ends[1]);
  if (peer) dup2(peer.Get(), STDERR_FILENO);
  const std::string name = input->ConsumeRandomLengthString(70), text = input->ConsumeRandomLengthString(300);
  Hyk_SetThreadName(name.c_str());
  const HykSyslogParam params[] = {{"threadName", Hyk_GetThreadName()}, {"other", text.c_str()}, {nullptr, nullptr}};
  const std::string copies(input->ConsumeIntegral<uint8_t>() < 8 ? 300'000 : 0, 'x');
  LogWith(params, "%s %s%d", text.c_str(), copies.c_str(), 5);
  if (peer) Hyk_WriteStandardError(text.data(), text.size());
  if (peer) hosted::LogAndTell("%s", text.c_str());
  dup2(before.Get(), STDERR_FILENO);
  if (who < 2) {
    static char record[400'000];
    const ssize_t size = recv(server.Get(), record, sizeof record, MSG_DONTWAIT);
    if (who == 0 && size > 0) Check(record[0] == '<' && std::find(record, record + size, '\n') == record + size);
    unlink(path.c_str());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  [[maybe_unused]] static const int made = hosted::MakeFolders(hosted::RootPath("/var/lib/corvane"), 0755);
  FuzzedDataProvider input(data, size);
  switch (input.ConsumeIntegral<uint8_t>() % 3) {
    case 0:
      TryTree(&input);
      break;
    case 1:
      TryStore(&input);
      break;
    default:
      TryLog(&input);
  }
  return 0;
}
