// cfmctl linktrace: which way do the frames go? IEEE 802.1Q clauses 20.3 and 21.9.
#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

#include "commands/commands.h"
#include "exit_status.h"
#include "json.h"
#include "mep_address.h"
#include "run_test.h"
#include "status_names.h"
#include "text.h"

namespace cfmctl {
namespace {

/// Where a reply's frame came in or would go out.
struct Side {
  std::uint8_t action = 0;
  cfm::st_mac mac{};
  std::string port;  ///< its name, where it is one
};

/// What a reply says; the entry of the library lives only during its handler's call.
struct Hop {
  std::uint8_t ttl = 0;
  std::uint32_t relay_action = 0;
  cfm::st_mac source{};
  bool terminal = false;
  bool forwarded = false;
  std::optional<Side> ingress;
  std::optional<Side> egress;
};

std::optional<Side> SideFrom(const std::unique_ptr<cfm::LtrReplyPortEntry>& entry) {
  if (!entry) return std::nullopt;
  return Side{.action = entry->action, .mac = entry->mac, .port = entry->port_id_present ? entry->port_id : ""};
}

std::string SideText(const std::string& name, const std::optional<Side>& side) {
  if (!side) return {};
  return fmt::format(", {} {} {}{}", name, NameOf(kReplyPortActionNames, side->action), side->mac.to_string(),
                     side->port.empty() ? "" : fmt::format(" ({})", Escape(side->port)));
}

Json SideJson(const Side& side) {
  Json json = {{"action", NameOf(kReplyPortActionNames, side.action)}, {"mac", side.mac.to_string()}};
  if (!side.port.empty()) json["port"] = Escape(side.port);
  return json;
}

// Progress reports name the sending MEP and a transaction, not the request: of that MEP's traces ours is the first that
// starts towards the target.
class LinktraceTest final : public cfm::ReceivedLinktraceHandlerIntf {
 public:
  LinktraceTest(const LinktraceOptions& options, std::uint32_t trigger_id)
      : options_(options), trigger_id_(trigger_id) {}

  const TestProgress& progress() const { return progress_; }

  void OnLinktraceStarted(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                          std::uint32_t transaction_id, cfm::st_mac target_mac, std::uint16_t target_mep_id,
                          bool has_optional_value, std::uint32_t optional_value) override {
    if (progress_.started || !IsSender(md, ma, mep_id) || target_mep_id != options_.address.target_mep_id) return;
    progress_.started = true;
    transaction_id_ = transaction_id;
    ttl_ = has_optional_value ? optional_value : options_.ttl;
    if (options_.json) {
      WriteLine({{"event", "started"},
                 {"transaction-id", transaction_id},
                 {"target-mac", target_mac.to_string()},
                 {"ttl", ttl_}},
                std::cout);
      return;
    }
    std::cout << fmt::format("linktrace {} ({}), TTL {}", TestText(options_.address), target_mac.to_string(), ttl_)
              << std::endl;
  }

  void OnLinktraceReply(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                        const cfm::LinktraceReplyEntry& reply) override {
    if (!progress_.started || !IsSender(md, ma, mep_id) || reply.transaction_id != transaction_id_) return;
    Hop hop{.ttl = reply.ttl,
            .relay_action = reply.relay_action,
            .source = reply.source_mac,
            .terminal = reply.terminal_mep,
            .forwarded = reply.forwarded,
            .ingress = SideFrom(reply.reply_ingress),
            .egress = SideFrom(reply.reply_egress)};
    if (options_.json) {
      WriteLine(HopJson(hop), std::cout);
    } else {
      std::cout << fmt::format("reply from {}: TTL {}", hop.source.to_string(), hop.ttl) << std::endl;
    }
    hops_.push_back(std::move(hop));
  }

  void OnLinktraceEnded(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                        std::uint32_t transaction_id) override {
    if (progress_.started && IsSender(md, ma, mep_id) && transaction_id == transaction_id_) progress_.ended = true;
  }

  void OnLinktraceTriggerError(const cfm::linktrace_trigger& trigger) override {
    if (trigger.trigger_id != trigger_id_) return;
    progress_.refused = true;
    constexpr const char* kReason =
        "the server gives no reason for a linktrace: the MEP is not there or not operational, or it has never heard "
        "of the target; see 'cfmctl status' and the server's log";
    ReportRefusal(options_.json, std::nullopt, kReason);
  }

  bool reached() const {
    return std::any_of(hops_.begin(), hops_.end(), [](const Hop& hop) { return hop.relay_action == kRelayHit; });
  }

  /// The hops in the order of the way: the TTL falls by one at each (IEEE 802.1Q clause 21.9).
  void Summarise() {
    std::stable_sort(hops_.begin(), hops_.end(), [](const Hop& a, const Hop& b) { return a.ttl > b.ttl; });
    if (options_.json) {
      WriteLine({{"event", progress_.ended ? "ended" : "incomplete"},
                 {"replies", hops_.size()},
                 {"target-reached", reached()}},
                std::cout);
      return;
    }
    std::cout << fmt::format("--- linktrace {}\n", TestText(options_.address));
    for (const Hop& hop : hops_) {
      std::cout << fmt::format("{:3}  {}  {}{}{}{}{}\n", HopNumber(hop), hop.source.to_string(),
                               NameOf(kRelayActionNames, hop.relay_action), SideText("ingress", hop.ingress),
                               SideText("egress", hop.egress), hop.forwarded ? ", forwarded" : "",
                               hop.terminal ? ", terminal MEP" : "");
    }
    std::cout << (progress_.ended ? "" : "not complete: ") << Count(hops_.size(), "reply", "replies") << ", target "
              << (reached() ? "reached" : "not reached") << '\n';
  }

 private:
  bool IsSender(const std::string& md, const std::string& ma, std::uint16_t mep_id) const {
    return md == options_.address.md_name && ma == options_.address.ma_name && mep_id == options_.address.mep_id;
  }

  std::int64_t HopNumber(const Hop& hop) const { return std::int64_t{ttl_} - hop.ttl; }

  Json HopJson(const Hop& hop) const {
    Json json = {{"event", "reply"},
                 {"hop", HopNumber(hop)},
                 {"source-mac", hop.source.to_string()},
                 {"ttl", hop.ttl},
                 {"relay-action", NameOf(kRelayActionNames, hop.relay_action)},
                 {"forwarded", hop.forwarded},
                 {"terminal-mep", hop.terminal}};
    if (hop.ingress) json["ingress"] = SideJson(*hop.ingress);
    if (hop.egress) json["egress"] = SideJson(*hop.egress);
    return json;
  }

  const LinktraceOptions& options_;
  std::uint32_t trigger_id_;
  TestProgress progress_;
  std::uint32_t transaction_id_ = 0;
  std::uint32_t ttl_ = 0;
  std::vector<Hop> hops_;
};

}  // namespace

int Linktrace(const GlobalOptions& global, const LinktraceOptions& options) {
  ConfiguredClient configured(global.config_file, global.server);
  Validate(options.address, configured.model());
  auto trigger = TriggerFor<cfm::linktrace_trigger>(options.address);
  trigger.ttl = static_cast<std::uint8_t>(options.ttl);

  LinktraceTest test(options, trigger.trigger_id);
  configured.Synchronise();
  // Not earlier: what started before is somebody else's.
  configured.client().RegisterLinktraceHandler(&test);
  // The server takes replies for five seconds.
  RunTest(
      configured, test.progress(), std::chrono::seconds(5), [&] { configured.client().LinktraceTrigger(trigger); },
      [&] { test.Summarise(); });
  return test.progress().ended && test.reached() ? kOk : kFailed;
}

}  // namespace cfmctl
