#include "link.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <thread>

#include "process.h"

namespace cfm_test {
namespace {

void RunBatch(const char* program, const Namespace& network, std::string_view commands) {
  Process batch({program, "-batch", "-"}, {}, network.fd());
  batch.WriteLine(commands);
  batch.CloseInput();
  const auto end = batch.Wait();
  if (end != End{0, 0}) {
    throw std::runtime_error(std::string(program) + ": " + std::string(commands) + ": " + batch.Errors());
  }
}

std::optional<ifreq> Ask(const Namespace& network, const std::string& port, unsigned long question) {
  const Inside inside(network);
  const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  port.copy(request.ifr_name, sizeof request.ifr_name - 1);
  const int result = ioctl(any, question, &request);
  close(any);
  return result == 0 ? std::optional(request) : std::nullopt;
}

}  // namespace

std::string ToText(const cfm::pdu::MacAddress& address) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", address[0], address[1], address[2], address[3],
                address[4], address[5]);
  return text;
}

void Ip(const Namespace& network, std::string_view commands) {
  RunBatch(IP_PROGRAM, network, commands);
}

void Bridge(const Namespace& network, std::string_view commands) {
  RunBatch(BRIDGE_PROGRAM, network, commands);
}

unsigned int Link::index() const {
  const Inside inside(*network_);
  return if_nametoindex(name_.c_str());
}

cfm::pdu::MacAddress Link::address() const {
  const auto answer = Ask(*network_, name_, SIOCGIFHWADDR);
  if (!answer) throw std::runtime_error("no address of " + name_);
  cfm::pdu::MacAddress address;
  std::memcpy(address.data(), answer->ifr_hwaddr.sa_data, address.size());
  return address;
}

bool Link::running() const {
  const auto answer = Ask(*network_, name_, SIOCGIFFLAGS);
  return answer && (answer->ifr_flags & IFF_RUNNING) != 0;
}

void Link::AwaitRunning() const {
  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  while (!running()) {
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error(name_ + " does not come up");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void Link::SetAddress(const cfm::pdu::MacAddress& address) const {
  Set("address " + ToText(address));
}

void Link::Rename(const std::string& name) {
  Set("name " + name);
  name_ = name;
}

void Link::Delete() const {
  Ip(*network_, "link delete dev " + name_);
}

void Link::SetBridgeState(std::string_view state) const {
  Bridge(*network_, "link set dev " + name_ + " state " + std::string(state));
}

void Link::Set(std::string_view what) const {
  Ip(*network_, "link set dev " + name_ + " " + std::string(what));
}

std::pair<Link, Link> Connect(const Namespace& a, const std::string& name_a, const Namespace& b,
                              const std::string& name_b) {
  // Ends of the same index in different namespaces look like one port to the kernel, which is then in no hurry to take
  // note of the carrier.
  static std::atomic<unsigned int> last_index{100};
  Ip(a, "link add name " + name_a + " index " + std::to_string(++last_index) + " up type veth peer name " + name_b +
            " index " + std::to_string(++last_index) + " netns " + b.path());
  std::pair<Link, Link> ends{Link(a, name_a), Link(b, name_b)};
  ends.second.Up();
  ends.first.AwaitRunning();
  ends.second.AwaitRunning();
  return ends;
}

Link MakeBridge(const Namespace& network, const std::string& name) {
  Ip(network, "link add name " + name + " up type bridge");
  return {network, name};
}

}  // namespace cfm_test
