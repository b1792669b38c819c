#include "correlators/catalog.h"

#include <algorithm>
#include <array>
#include <span>

#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/network/linkFlapping.h"
#include "correlators/network/networkCorrelators.h"
#include "correlators/network/uplinkMonitor.h"
#include "correlators/storage/storageCorrelators.h"
#include "correlators/user/userCorrelators.h"

namespace rynd {
namespace {

using Rows = std::span<const PostRow> (*)();
using Messages = std::span<const EventMessage> (*)();

/// The rows of all correlators, and the messages of their other handlers.
constexpr auto kRows = std::to_array<Rows>({
    NetPostRows,
    NetFirewallConfigPostRows,
    NetFirewallPortPostRows,
    ScsiPostRows,
    PsaStorPostRows,
    ApdPostRows,
    IscsiPostRows,
    HyfsPostRows,
    HardwarePostRows,
    CpuPostRows,
    UserWorldPostRows,
    MemtierPostRows,
    VmPostRows,
    ClockPostRows,
    SchedPostRows,
    VscsiPostRows,
    HcmPostRows,
    KvolPostRows,
    BootDevicePostRows,
});
constexpr auto kMessages = std::to_array<Messages>({
    NetMessages,
    UplinkMessages,
    LinkFlappingMessages,
    ScsiMessages,
    StoragePathMessages,
    PsaStorMessages,
    IscsiMessages,
    HyfsMessages,
    UserLevelMessages,
    CpuMessages,
    UserWorldMessages,
    SwapMessages,
    GenericMessages,
    MigrateMessages,
    PageRetireMessages,
    VelfsMessages,
    VfatMessages,
    VscsiMessages,
});

CatalogMessage ToCatalog(const EventMessage &message) {
  const std::string_view text(message.format);
  const size_t idEnd = text.find(')');
  return {message.category, text.substr(kEventMarker.size(), idEnd - kEventMarker.size()), message.format + idEnd + 1};
}

/// Several ids may post the same event: it is held once.
std::vector<CatalogMessage> MakeCatalog() {
  std::vector<CatalogMessage> all;
  for (const Rows rows : kRows) {
    for (const PostRow &row : rows()) all.push_back(ToCatalog(row.message));
  }
  for (const Messages messages : kMessages) {
    for (const EventMessage &message : messages()) all.push_back(ToCatalog(message));
  }
  std::ranges::stable_sort(all, {}, &CatalogMessage::name);
  const auto haveOneName = [](const CatalogMessage &a, const CatalogMessage &b) { return a.name == b.name; };
  all.erase(std::unique(all.begin(), all.end(), haveOneName), all.end());
  return all;
}

}  // namespace

const std::vector<CatalogMessage> &Catalog() {
  static const std::vector<CatalogMessage> catalog = MakeCatalog();
  return catalog;
}

std::vector<const PostRow *> AllPostRows() {
  std::vector<const PostRow *> all;
  for (const Rows rows : kRows) {
    for (const PostRow &row : rows()) all.push_back(&row);
  }
  return all;
}

const CatalogMessage *FindCatalogMessage(std::string_view name) {
  const auto place = std::ranges::lower_bound(Catalog(), name, {}, &CatalogMessage::name);
  return place != Catalog().end() && place->name == name ? &*place : nullptr;
}

}  // namespace rynd
