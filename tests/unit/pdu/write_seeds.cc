// Writes the golden frames as seeds of the fuzzers: write_seeds DIRECTORY, which gets one folder per target. To be run,
// and its files checked in, when the golden frames have changed.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "golden_frames.h"
#include "pdu/ethernet.h"

namespace cfm::pdu {
namespace {

void Write(const std::filesystem::path& folder, const std::string& name, const Buffer& octets) {
  std::filesystem::create_directories(folder);
  std::ofstream stream(folder / name, std::ios::binary);
  for (const std::uint8_t octet : octets) stream.put(static_cast<char>(octet));
}

Buffer Framed(const EthernetHeader& header, const Buffer& pdu) {
  Buffer frame(kLongestEthernetHeader);
  frame.resize(EncodeEthernet(header, frame));
  frame.insert(frame.end(), pdu.begin(), pdu.end());
  return frame;
}

void WriteFrames(const std::filesystem::path& root) {
  for (const GoldenFrame& frame : GoldenFrames()) Write(root / frame.target, frame.name, frame.octets);
  Write(root / "header", "dmm", GoldenOctets("dmm"));

  const Buffer& pdu = GoldenOctets("ais-second");
  EthernetHeader header{.destination = ToAddress({.group_class = GroupClass::k1, .level = 2}),
                        .source = {2, 0, 0, 0, 0, 1},
                        .outer = {},
                        .inner = {}};
  Write(root / "ethernet", "untagged", Framed(header, pdu));
  header.outer = Tag{.priority = 7, .drop_eligible = false, .vid = 100};
  Write(root / "ethernet", "tagged", Framed(header, pdu));
  header.inner = Tag{.priority = 5, .drop_eligible = true, .vid = 4094};
  const Buffer two_tags = Framed(header, pdu);
  Write(root / "ethernet", "two-tags", two_tags);
  // A stripped tag comes first.
  Buffer stripped = Hex("88a8e064");
  stripped.insert(stripped.end(), two_tags.begin(), two_tags.begin() + 12);
  stripped.insert(stripped.end(), two_tags.begin() + 16, two_tags.end());
  Write(root / "ethernet", "stripped-tag", stripped);
}

void WriteMaids(const std::filesystem::path& folder) {
  const std::vector<std::pair<std::string, std::string>> names = {
      {"dns", "02 01 0b 6578616d706c652e6e6574 313030"}, {"mac", "03 02 13 30303a31313a32323a33333a34343a35353a37 61"},
      {"string", "04 03 04 77657374 3635353335"},        {"vpn", "01 04 00 3030613062313a3030303030303031"},
      {"icc", "01 20 00 41424344454631323334353637"},
  };
  for (const auto& [name, hex] : names) Write(folder, name, Hex(hex));
}

/// The first octet says which record is drawn from the rest.
void WriteRecords(const std::filesystem::path& folder) {
  for (std::uint8_t kind = 0; kind < 7; ++kind) {
    Buffer octets = {kind};
    for (unsigned i = 0; i < 120; ++i) octets.push_back(static_cast<std::uint8_t>(i % 9));
    Write(folder, "record-" + std::to_string(kind), octets);
  }
}

}  // namespace
}  // namespace cfm::pdu

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: " << argv[0] << " DIRECTORY\n";
    return 2;
  }
  const std::filesystem::path root = argv[1];
  cfm::pdu::WriteFrames(root);
  cfm::pdu::WriteMaids(root / "maid");
  cfm::pdu::WriteRecords(root / "records");
  return 0;
}
