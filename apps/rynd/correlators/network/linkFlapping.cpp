#include "correlators/network/linkFlapping.h"

#include "core/basics/reason.h"
#include "platform/hykCtlAdv.h"
#include "platform/hykCtlUtil.h"

namespace rynd {
namespace {

constexpr EventMessage kLinkFlapping = {
    kProblem,
    "@&!*@*@(amb.problem.net.hynic.linkstate.flapping)Taking down physical NIC %s because the link is flapping."};
constexpr EventMessage kMessages[] = {kLinkFlapping};

}  // namespace

std::span<const EventMessage> LinkFlappingMessages() {
  return kMessages;
}

size_t LinkFlapDetector::CountOf(const std::string &uplink) const {
  const auto history = linkFlapHistory_.find(uplink);
  if (history == linkFlapHistory_.end()) return 0;
  size_t count = 0;
  for (const Losses &losses : history->second) count += losses.count;
  return count;
}

void LinkFlapDetector::CheckLinkFlapping(const std::string &uplink, int64_t nowS) {
  std::deque<Losses> &history = linkFlapHistory_[uplink];
  if (history.empty() || history.back().atS != nowS) history.push_back({nowS, 0});
  ++history.back().count;
  while (history.front().atS < nowS - kWindowS) history.pop_front();

  const uint32_t threshold = HykCtl::Adv::AdvancedIntegerOptionImpl({"Net"}, "LinkFlappingThreshold").GetValue();
  if (threshold == 0) return Reason("Net/LinkFlappingThreshold is 0: no flapping link is taken down");
  const size_t count = CountOf(uplink);
  Reason("counter of link losses of %s at %lu in %ld s, tolerated are %u", uplink, count, kWindowS, threshold);
  if (count <= threshold) return;
  HykCtl::Util::Sysinfo("net/pNics/linkFlapping").AddInstancePath(uplink.c_str()).AddInput(1).Set();
  PostMessage<kLinkFlapping>(uplink.c_str());
  history.clear();
}

}  // namespace rynd
