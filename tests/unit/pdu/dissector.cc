#include "dissector.h"

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace cfm::pdu {
namespace {

constexpr std::array kFields = {
    "eth.dst",
    "eth.src",
    "eth.type",
    "ieee8021ad.priority",
    "ieee8021ad.dei",
    "ieee8021ad.id",
    "vlan.priority",
    "vlan.dei",
    "vlan.id",
    "vlan.etype",
    "cfm.md.level",
    "cfm.version",
    "cfm.opcode",
    "cfm.flags",
    "cfm.flags.rdi",
    "cfm.flags.ccm.reserved",
    "cfm.flags.interval",
    "cfm.flags.usefdbonly",
    "cfm.flags.ltm.reserved",
    "cfm.flags.fwdyes",
    "cfm.flags.ltr.terminalmep",
    "cfm.flags.ltr.reserved",
    "cfm.flags.ais_lck_Reserved",
    "cfm.flags.ais_lck_Period",
    "cfm.first.tlv.offset",
    "cfm.ccm.seq.num",
    "cfm.ccm.ma.ep.id",
    "cfm.maid.md.name.format",
    "cfm.maid.md.name.length",
    "cfm.maid.md.name.string",
    "cfm.maid.md.name.hex",
    "cfm.maid.md.name.mac",
    "cfm.maid.md.name.mac.id",
    "cfm.maid.ma.name.format",
    "cfm.maid.ma.name.length",
    "cfm.maid.ma.name.string",
    "cfm.maid.ma.name.hex",
    "cfm.itu.txfcf",
    "cfm.itu.rxfcb",
    "cfm.itu.txfcb",
    "cfm.itu.reserved",
    "cfm.lb.transaction.id",
    "cfm.lt.transaction.id",
    "cfm.lt.ttl",
    "cfm.ltm.orig.addr",
    "cfm.ltm.targ.addr",
    "cfm.ltr.relay.action",
    "cfm.odm.dmm.dmr.txtimestampf",
    "cfm.odm.dmm.dmr.rxtimestampf",
    "cfm.dmm.dmr.txtimestampb",
    "cfm.dmm.dmr.rxtimestampb",
    "cfm.tlv.type",
    "cfm.tlv.length",
    "cfm.tlv.chassis.id.length",
    "cfm.tlv.chassis.id.subtype",
    "cfm.tlv.chassis.id",
    "cfm.tlv.ma.domain.length",
    "cfm.tlv.ma.domain",
    "cfm.tlv.management.addr.length",
    "cfm.tlv.management.addr",
    "cfm.tlv.port.status.value",
    "cfm.tlv.data.value",
    "cfm.tlv.port.interface.value",
    "cfm.tlv.reply.ingress.action",
    "cfm.tlv.reply.ingress.mac.address",
    "cfm.tlv.reply.ing.egr.portid.length",
    "cfm.tlv.reply.ing.egr.portid.subtype",
    "cfm.tlv.reply.ing.egr.portid",
    "cfm.tlv.reply.egress.action",
    "cfm.tlv.reply.egress.mac.address",
    "cfm.tlv.ltm.egress.id.mac",
    "cfm.tlv.ltm.egress.id.ui",
    "cfm.tlv.ltr.egress.last.id.mac",
    "cfm.tlv.ltr.egress.last.id.ui",
    "cfm.tlv.ltr.egress.next.id.mac",
    "cfm.tlv.ltr.egress.next.id.ui",
    "_ws.malformed",
    "_ws.expert.message",
};

class TemporaryFolder {
 public:
  TemporaryFolder() {
    const char* parent = std::getenv("TMPDIR");
    path_ = std::string(parent != nullptr ? parent : "/tmp") + "/pdu-XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder at " + path_);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

void Append32(std::string& octets, std::size_t value) {
  for (unsigned shift = 0; shift < 32; shift += 8) octets += static_cast<char>(value >> shift & 0xff);
}

/// The classic format, little-endian, of Ethernet frames.
void WriteCapture(const std::string& path, const std::vector<Buffer>& frames) {
  std::string capture;
  Append32(capture, 0xa1b2c3d4);
  Append32(capture, 2 | 4 << 16);  // version 2.4
  Append32(capture, 0);            // time zone
  Append32(capture, 0);            // accuracy
  Append32(capture, 65535);        // longest frame
  Append32(capture, 1);            // Ethernet
  for (const Buffer& frame : frames) {
    Append32(capture, 0);  // seconds
    Append32(capture, 0);  // microseconds
    Append32(capture, frame.size());
    Append32(capture, frame.size());
    capture.append(frame.begin(), frame.end());
  }
  std::ofstream(path, std::ios::binary) << capture;
}

/// Its exit status, and what it wrote.
std::pair<int, std::string> Run(const std::string& command) {
  std::FILE* const pipe = popen(command.c_str(), "re");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string output;
  std::array<char, 4096> chunk{};
  while (const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), pipe)) output.append(chunk.data(), count);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

std::vector<std::string> Split(const std::string& line) {
  std::vector<std::string> parts;
  std::istringstream stream(line + "\t");
  for (std::string part; std::getline(stream, part, '\t');) parts.push_back(part);
  return parts;
}

}  // namespace

std::optional<std::vector<Fields>> Dissect(const std::vector<Buffer>& frames) {
  if (Run("command -v tshark").first != 0) return std::nullopt;
  const TemporaryFolder folder;
  const std::string capture = folder.path() + "/frames.pcap";
  WriteCapture(capture, frames);

  // Without the preferences of whoever runs the test.
  std::string command = "HOME=" + folder.path() + " XDG_CONFIG_HOME=" + folder.path() + " tshark -n -r " + capture +
                        " -T fields -E separator=/t -E 'aggregator=;'";
  for (const char* field : kFields) command += std::string(" -e ") + field;
  const auto [status, output] = Run(command + " 2>" + folder.path() + "/errors");
  if (status != 0) {
    std::ostringstream errors;
    errors << std::ifstream(folder.path() + "/errors").rdbuf();
    throw std::runtime_error("tshark ended with " + std::to_string(status) + ": " + errors.str());
  }

  std::vector<Fields> dissected;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    const std::vector<std::string> values = Split(line);
    if (values.size() != kFields.size()) throw std::runtime_error("tshark wrote an unexpected line: " + line);
    Fields& fields = dissected.emplace_back();
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (!values[i].empty()) fields[kFields.at(i)] = values[i];
    }
  }
  return dissected;
}

}  // namespace cfm::pdu
