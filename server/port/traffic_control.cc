#include "port/traffic_control.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>

#include <cstdint>
#include <vector>

namespace cfm::port {
namespace {

// Before filters that were put there without a priority, behind those that were meant to be the first.
constexpr std::uint32_t kPriority = 0x89;
constexpr std::uint32_t kHandle = 0x8902;

constexpr std::uint32_t ParentOf(Hook hook) {
  return TC_H_MAKE(TC_H_CLSACT, hook == Hook::kIngress ? TC_H_MIN_INGRESS : TC_H_MIN_EGRESS);
}

tcmsg HooksOf(Index index) {
  tcmsg which{};
  which.tcm_ifindex = static_cast<int>(index);
  which.tcm_handle = TC_H_MAKE(TC_H_CLSACT, 0);
  which.tcm_parent = TC_H_CLSACT;
  return which;
}

tcmsg FilterOf(Index index, Hook hook) {
  tcmsg which{};
  which.tcm_ifindex = static_cast<int>(index);
  which.tcm_parent = ParentOf(hook);
  which.tcm_handle = kHandle;
  which.tcm_info = TC_H_MAKE(kPriority << 16, htons(ETH_P_ALL));
  return which;
}

std::vector<sock_filter> ReadProgram(Octets octets) {
  std::vector<sock_filter> program;
  while (const auto instruction = ReadAs<sock_filter>(octets)) {
    program.push_back(*instruction);
    octets = octets.subspan(sizeof *instruction);
  }
  return program;
}

}  // namespace

int TrafficControl::AddHooks() {
  Request request(RTM_NEWQDISC, NLM_F_CREATE | NLM_F_EXCL, HooksOf(index_));
  request.Add(TCA_KIND, "clsact");
  return netlink_.Ask(std::move(request));
}

int TrafficControl::RemoveHooks() {
  return netlink_.Ask(Request(RTM_DELQDISC, 0, HooksOf(index_)));
}

int TrafficControl::PutFilter(Hook hook, const Program& program) {
  Request request(RTM_NEWTFILTER, NLM_F_CREATE, FilterOf(index_, hook));
  request.Add(TCA_KIND, "bpf");
  const std::size_t options = request.Begin(TCA_OPTIONS);
  request.Add(TCA_BPF_OPS_LEN, static_cast<std::uint16_t>(program.size()));
  request.Add(TCA_BPF_OPS, std::as_bytes(std::span(program)));
  request.Add(TCA_BPF_FLAGS, std::uint32_t{TCA_BPF_FLAG_ACT_DIRECT});
  request.End(options);
  return netlink_.Ask(std::move(request));
}

int TrafficControl::RemoveFilter(Hook hook) {
  Request request(RTM_DELTFILTER, 0, FilterOf(index_, hook));
  request.Add(TCA_KIND, "bpf");
  return netlink_.Ask(std::move(request));
}

TrafficControl::Present TrafficControl::Look(Hook hook) {
  tcmsg which{};
  which.tcm_ifindex = static_cast<int>(index_);
  which.tcm_parent = ParentOf(hook);
  Present present;
  netlink_.Dump(Request(RTM_GETTFILTER, NLM_F_DUMP, which), [&present](const NetlinkMessage& message) {
    const auto filter = ReadAs<tcmsg>(message.body);
    // Without a handle it is the head of a list of filters.
    if (message.header.nlmsg_type != RTM_NEWTFILTER || !filter || filter->tcm_handle == 0) return;
    const Octets attributes = message.AttributesBehind<tcmsg>();
    const Octets options = FindAttribute(attributes, TCA_OPTIONS);
    std::optional<HookMark> mark;
    if (filter->tcm_handle == kHandle && TC_H_MAJ(filter->tcm_info) == kPriority << 16 &&
        ReadText(FindAttribute(attributes, TCA_KIND)) == "bpf") {
      mark = MarkOf(ReadProgram(FindAttribute(options, TCA_BPF_OPS)));
    }
    if (mark) {
      present.own = mark;
    } else {
      present.is_shared = true;
    }
  });
  return present;
}

}  // namespace cfm::port
