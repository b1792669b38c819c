// Any arguments through librynsubmit, over a real socket: what it submits is a sound record with these arguments, and
// what it refuses it does not send.
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/socket.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "base/uniqueFd.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "hosted/records/rawRecord.h"
#include "librynsubmit/rynsubmit.h"

namespace {

/// The daemon's end, as far as there is one: nothing is read before the submit has returned.
struct Server {
  base::UniqueFd listener, connection;
  rynsubmit *client = nullptr;
  Server() {
    const std::string path = hosted::RootPath(hosted::kUserSocket);
    hosted::MakeFolders(path.substr(0, path.rfind('/')), 0755);
    if (hosted::ServeUnixSocket(path, SOCK_SEQPACKET, 0600, &listener) != 0) abort();
    if (rynsubmit_connect(0, &client) != 0) abort();
    connection.Reset(accept(listener.Get(), nullptr, nullptr));
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Server &server = *new Server;
  FuzzedDataProvider input(data, size);
  std::string id = input.ConsumeRandomLengthString(40);
  if (input.ConsumeBool()) id = "ryn.user." + id;
  const std::string message = input.ConsumeRandomLengthString(100);
  std::vector<std::string> texts(input.ConsumeIntegral<uint8_t>() % 12);
  std::vector<rynsubmit_argument> arguments;
  for (std::string &text : texts) {
    text = input.ConsumeRandomLengthString(100);
    rynsubmit_argument argument = rynsubmit_string(text.c_str());
    if (input.ConsumeBool()) {
      argument = rynsubmit_unsigned(input.ConsumeIntegral<uint8_t>() % 10, input.ConsumeIntegral<uint64_t>());
      argument.kind = static_cast<rynsubmit_kind>(input.ConsumeIntegral<uint8_t>() % 6);
      if (argument.kind == RYNSUBMIT_STRING) argument.value.s = text.c_str();
    }
    arguments.push_back(argument);
  }
  const int status = rynsubmit_submit(server.client, id.c_str(), message.c_str(), arguments.data(), arguments.size());
  std::vector<std::byte> record(200'000);
  const ssize_t got = recv(server.connection.Get(), record.data(), record.size(), MSG_DONTWAIT);
  if ((status == 0) != (got > 0)) abort();
  if (status != 0) return 0;
  if (hosted::CheckRecord(record.data(), static_cast<size_t>(got)) != nullptr) abort();
  const hosted::RawRecord taken = hosted::DecodeRecord(record.data(), static_cast<size_t>(got));
  if (taken.id != id.c_str() || taken.message != message.c_str() || taken.arguments.size() != arguments.size()) abort();
  return 0;
}
