#include "correlators/user/rebootReason.h"

#include <time.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <utility>

#include "platform/configStore.h"

namespace rynd {
namespace {

constexpr const char *kComponent = "amb";
constexpr const char *kGroup = "hykernel";
constexpr const char *kKey = "reboot_reason";
constexpr const char *kIdentity = "";
constexpr int kExists = 0x0bad0005;

struct DestroyObject {
  void operator()(ConfigStore::Object *object) const { ConfigStore::DestroyConfigStoreObject(object); }
};
struct DestroyStore {
  void operator()(ConfigStore::Store *store) const { ConfigStore::DestroyStore(store); }
};
struct FreeText {
  void operator()(char *text) const { std::free(text); }
};
using ObjectPtr = std::unique_ptr<ConfigStore::Object, DestroyObject>;
using StorePtr = std::unique_ptr<ConfigStore::Store, DestroyStore>;

/// The store, or null when it can't be opened.
StorePtr OpenStore() {
  ConfigStore::Store *store = nullptr;
  return StorePtr(ConfigStore::GetStore(0, &store) == 0 ? store : nullptr);
}

}  // namespace

void RecordRebootReason(const RebootReason &reason) {
  ConfigStore::Object *created = nullptr;
  if (ConfigStore::CreateObject(kKey, kGroup, kComponent, kIdentity, "{}", &created) != 0) return;
  const ObjectPtr object(created);
  const std::pair<const char *, const char *> values[] = {{"type", reason.type},
                                                          {"user", reason.user},
                                                          {"subsystem", reason.subsystem},
                                                          {"timestamp", reason.timestamp},
                                                          {"reason", reason.reason}};
  for (const auto &[name, value] : values) {
    if (ConfigStore::SetValueStr(object.get(), name, value == nullptr ? "" : value) != 0) return;
  }
  const StorePtr store = OpenStore();
  if (store != nullptr) ConfigStore::SetCachedData(store.get(), object.get());
}

int RebootReasonRecorded() {
  const StorePtr store = OpenStore();
  if (store == nullptr) return 0;
  ConfigStore::Object *found = nullptr;
  if (ConfigStore::Get(store.get(), kKey, kGroup, kComponent, kIdentity, &found) != 0) return 0;
  const ObjectPtr object(found);
  char *text = nullptr;
  const int status = ConfigStore::GetValueStr(object.get(), "reason", &text);
  const std::unique_ptr<char, FreeText> freed(text);
  return status == 0 ? kExists : 0;
}

std::string RebootTimestamp(int64_t now) {
  const time_t seconds = now;
  tm local{};
  tzset();  // localtime_r alone would stay in the time zone that the process began in
  localtime_r(&seconds, &local);
  std::array<char, 128> text{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-y2k"  // kept: readers of the record know a year of two digits
  strftime(text.data(), text.size(), "%a, %d %b %y %T %z", &local);
#pragma GCC diagnostic pop
  return text.data();
}

}  // namespace rynd
