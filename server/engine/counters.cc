#include "engine/counters.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "pdu/decoded.h"

namespace cfm::engine {
namespace {

class List {
 public:
  void Add(std::string_view what, std::uint64_t count) {
    if (count == 0) return;
    if (!text_.empty()) text_ += ", ";
    text_ += std::string(what) + ": " + std::to_string(count);
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace

std::string ToText(const protocol::Mep& mep) {
  List list;
  const protocol::Mep::Dropped& dropped = mep.dropped();
  for (std::size_t i = 0; i < dropped.malformed.size(); ++i) {
    list.Add("malformed, " + std::string(pdu::ToText(static_cast<pdu::Problem>(i))), dropped.malformed[i]);
  }
  list.Add("from a group address", dropped.group_source);
  list.Add("to the wrong group", dropped.wrong_group);
  list.Add("to another station", dropped.not_for_us);
  list.Add("of a lower level", dropped.lower_level);
  list.Add("from the other side", dropped.behind);
  list.Add("of an unknown opcode", dropped.unknown_opcode);
  list.Add("delay replies to nothing that was sent", dropped.unexpected_delay);
  list.Add("loopback messages beyond the rate", mep.loopback_responder().counters().over_rate);
  list.Add("loopback replies to nothing that was sent", mep.loopback().counters().strangers);
  list.Add("loopback replies that came again", mep.loopback().counters().duplicates);
  list.Add("linktrace messages that cannot be answered", mep.linktrace_responder().counters().invalid);
  list.Add("linktrace messages beyond the queue", mep.linktrace_responder().counters().overflow);
  list.Add("linktrace replies to no open trace", mep.linktrace().unexpected());
  list.Add("CCMs that were late", mep.ccm_sender().counters().late);
  list.Add("CCMs that could not be sent", mep.ccm_sender().counters().failed);
  return list.text();
}

std::string ToText(const port::Counters& counters) {
  List list;
  list.Add("received", counters.received);
  list.Add("larger than any frame may be", counters.oversized);
  list.Add("with other tags than are in use", counters.malformed);
  list.Add("lost before they were read", counters.overrun);
  list.Add("sent", counters.sent);
  list.Add("refused by the kernel", counters.refused);
  return list.text();
}

}  // namespace cfm::engine
