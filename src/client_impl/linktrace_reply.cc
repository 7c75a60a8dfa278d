#include "client_impl/linktrace_reply.h"

#include <array>
#include <cstdio>
#include <locale>
#include <sstream>
#include <string_view>

#include "client_impl/receive.h"

namespace cfm {
namespace {

// The two octets of a unique id as they lie in memory.
std::uint16_t UniqueIdOf(const std::string& field) {
  std::uint16_t id = 0;
  CopyOctets(field, &id, sizeof(id));
  return id;
}

std::unique_ptr<LtrReplyPortEntry> ReplyPortFrom(const client_server::LtrReplyEgressIngress& message) {
  auto port = std::make_unique<LtrReplyPortEntry>();
  port->action = Low8(message.action());
  port->mac = MacOf(message.mac());
  port->port_id_present = message.port_id().present();
  port->port_id_subtype = Low8(message.port_id().subtype());
  port->port_id = message.port_id().value();
  return port;
}

// What separates the parts of a rendered entry: all on one line, or one item per line with groups indented.
struct Layout {
  explicit Layout(unsigned int indent)
      : pad(indent, ' '),
        end(indent != 0 ? "\n" : "; "),
        sub(indent != 0 ? "\n" : ", "),
        open(indent != 0 ? "\n" : " ") {}

  std::string pad;        // before an item of a group
  std::string_view end;   // after an item
  std::string_view sub;   // after an item of a group that is not its last
  std::string_view open;  // after the label of a group
};

void ShowReplyPort(std::ostream& out, const Layout& layout, std::string_view side, const LtrReplyPortEntry& port) {
  out << "Reply " << side << ":" << layout.open;
  out << layout.pad << side << " action: " << +port.action << layout.sub;
  out << layout.pad << side << " MAC: " << port.mac.to_string() << layout.sub;
  out << layout.pad << "Port ID: ";
  if (port.port_id_present) {
    out << "Subtype " << +port.port_id_subtype << ", Length " << port.port_id.size();
  } else {
    out << "Not present";
  }
  out << layout.end;
}

}  // namespace

std::string st_mac::to_string() const {
  std::array<char, 18> text{};
  std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", octets[0], octets[1], octets[2], octets[3],
                octets[4], octets[5]);
  return text.data();
}

LinktraceReplyEntry::~LinktraceReplyEntry() {
  egress_id.reset();
  reply_ingress.reset();
  reply_egress.reset();
}

std::string LinktraceReplyEntry::Show(const LinktraceReplyEntry& entry, unsigned int indent) {
  const Layout layout(indent);
  const LtrEgressIdEntry egress_id = entry.egress_id ? *entry.egress_id : LtrEgressIdEntry{};
  std::ostringstream out;
  out.imbue(std::locale::classic());  // the application's own would group digits and translate the flags
  out << std::boolalpha;
  out << "Transaction ID: " << entry.transaction_id << layout.end;
  out << "Destination MAC: " << entry.destination_mac.to_string() << layout.end;
  out << "Source MAC: " << entry.source_mac.to_string() << layout.end;
  out << "VLAN: " << entry.vlan << layout.end;
  out << "Priority: " << +entry.priority << layout.end;
  if (entry.internal_vlan != 0) {
    out << "Internal VLAN: " << entry.internal_vlan << layout.end;
    out << "Internal Priority: " << +entry.internal_priority << layout.end;
  }
  out << "Level: " << +entry.level << layout.end;
  out << "Flags:" << layout.open;
  out << layout.pad << "Terminal MEP: " << entry.terminal_mep << layout.sub;
  out << layout.pad << "Forwarded: " << entry.forwarded << layout.sub;
  out << layout.pad << "Use FDB only: " << entry.use_fdb_only << layout.end;
  out << "TTL: " << +entry.ttl << layout.end;
  out << "Relay action:" << static_cast<std::int32_t>(entry.relay_action) << layout.end;
  out << "LTR Egress ID:" << layout.open;
  out << layout.pad << "Last: " << egress_id.last_mac.to_string() << layout.sub;
  out << layout.pad << "Next: " << egress_id.next_mac.to_string() << layout.end;
  if (entry.reply_ingress) {
    ShowReplyPort(out, layout, "Ingress", *entry.reply_ingress);
  }
  if (entry.reply_egress) {
    ShowReplyPort(out, layout, "Egress", *entry.reply_egress);
  }
  return out.str();
}

std::shared_ptr<LinktraceReplyEntry> LinktraceReplyFrom(const client_server::LinktraceReply& reply) {
  auto entry = std::make_shared<LinktraceReplyEntry>();
  entry->destination_mac = MacOf(reply.destination_mac());
  entry->source_mac = MacOf(reply.source_mac());
  entry->vlan = Low16(reply.vlan());
  entry->priority = Low8(reply.priority());
  if (reply.has_internal_vlan()) {
    entry->internal_vlan = Low16(reply.internal_vlan());
    entry->internal_priority = Low8(reply.internal_priority());
  }
  entry->level = Low8(reply.level());
  entry->terminal_mep = reply.flags().terminal_mep();
  entry->forwarded = reply.flags().forwarded();
  entry->use_fdb_only = reply.flags().use_fdb_only();
  entry->transaction_id = reply.transaction_id();
  entry->ttl = Low8(reply.ttl());
  entry->relay_action = reply.relay_action();
  const client_server::EgressId& last = reply.egress_id().last();
  const client_server::EgressId& next = reply.egress_id().next();
  entry->egress_id = std::make_unique<LtrEgressIdEntry>(LtrEgressIdEntry{
      MacOf(last.mac()), UniqueIdOf(last.unique_id()), MacOf(next.mac()), UniqueIdOf(next.unique_id())});
  if (reply.has_reply_ingress()) {
    entry->reply_ingress = ReplyPortFrom(reply.reply_ingress());
  }
  if (reply.has_reply_egress()) {
    entry->reply_egress = ReplyPortFrom(reply.reply_egress());
  }
  return entry;
}

}  // namespace cfm
