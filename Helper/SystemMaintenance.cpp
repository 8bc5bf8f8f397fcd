#include "Helper/SystemMaintenance.hpp"

namespace sorrel::helper {
namespace {

using Answer = SystemTools::Answer;

constexpr BusMethod kCaches[] = {
    {"org.freedesktop.resolve1", "/org/freedesktop/resolve1", "org.freedesktop.resolve1.Manager",
     "FlushCaches"},
    {"uk.org.thekelleys.dnsmasq", "/uk/org/thekelleys/dnsmasq", "uk.org.thekelleys.dnsmasq", "ClearCache"},
    // The dnsmasq that NetworkManager starts.
    {"org.freedesktop.NetworkManager.dnsmasq", "/uk/org/thekelleys/dnsmasq", "uk.org.thekelleys.dnsmasq",
     "ClearCache"},
};
constexpr FixedCommand kNameCache = {"/run/nscd/socket", false, {"/usr/sbin/nscd", "-i", "hosts", nullptr}};
// Through its own service, which has the permissions for it. A service whose conditions are not met (a
// machine on battery) "starts" without doing anything: only a new index proves success.
constexpr FixedCommand kFileIndex = {"/var/lib/plocate/plocate.db",
                                     true,
                                     {"/usr/bin/systemctl", "start", "plocate-updatedb.service", nullptr}};

EventOutcome outcomeOf(bool flag, HelperEventErrorID code) { return {flag, static_cast<std::int32_t>(code)}; }

/// Keeps the first failure.
void add(Answer answer, EventOutcome& outcome) {
  if (!outcome.flag || answer == Answer::Done || answer == Answer::Absent) return;
  outcome = outcomeOf(
      false, answer == Answer::TimedOut ? HelperEventErrorID::OverTime : HelperEventErrorID::NoCause);
}

}  // namespace

EventOutcome cleanDNS(SystemTools& tools) {
  EventOutcome outcome = outcomeOf(true, HelperEventErrorID::Success);
  for (const BusMethod& cache : kCaches) add(tools.call(cache), outcome);
  add(tools.run(kNameCache), outcome);
  return outcome;
}

EventOutcome rebuildFileIndex(SystemTools& tools) {
  EventOutcome outcome = outcomeOf(true, HelperEventErrorID::Success);
  const Answer answer = tools.run(kFileIndex);
  if (answer == Answer::Absent) return outcomeOf(false, HelperEventErrorID::NoCause);
  add(answer, outcome);
  return outcome;
}

}  // namespace sorrel::helper
