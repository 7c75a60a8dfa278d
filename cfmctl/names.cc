#include "names.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <vector>

#include "cfm/hierarchy.h"

namespace cfmctl {
namespace {

template <class Enum>
constexpr std::uint32_t Code(Enum value) {
  return static_cast<std::uint32_t>(value);
}

constexpr std::array kSenderIds = {
    CodeName{Code(cfm::SenderIdTlvContent::kNone), "none"},
    CodeName{Code(cfm::SenderIdTlvContent::kChassis), "chassis"},
    CodeName{Code(cfm::SenderIdTlvContent::kManage), "manage"},
    CodeName{Code(cfm::SenderIdTlvContent::kChassisManage), "chassis-manage"},
    CodeName{Code(cfm::SenderIdTlvContent::kDefer), "defer"},
};
constexpr std::array kMhfCreations = {
    CodeName{Code(cfm::MhfCreationMode::kNone), "none"},
    CodeName{Code(cfm::MhfCreationMode::kDefault), "default"},
    CodeName{Code(cfm::MhfCreationMode::kExplicit), "explicit"},
    CodeName{Code(cfm::MhfCreationMode::kDefer), "defer"},
};
constexpr std::array kCcmIntervals = {
    CodeName{Code(cfm::CcmInterval::k300Hz), "3.3ms"}, CodeName{Code(cfm::CcmInterval::k300Hz), "300hz"},
    CodeName{Code(cfm::CcmInterval::k10ms), "10ms"},   CodeName{Code(cfm::CcmInterval::k100ms), "100ms"},
    CodeName{Code(cfm::CcmInterval::k1s), "1s"},       CodeName{Code(cfm::CcmInterval::k10s), "10s"},
    CodeName{Code(cfm::CcmInterval::k1min), "1min"},   CodeName{Code(cfm::CcmInterval::k10min), "10min"},
};
constexpr std::array kLowestAlarms = {
    CodeName{Code(cfm::Defects::kAll), "all"},
    CodeName{Code(cfm::Defects::kMacStatusAndHigher), "mac-status"},
    CodeName{Code(cfm::Defects::kRemoteCcmAndHigher), "remote-ccm"},
    CodeName{Code(cfm::Defects::kErrorCcmAndHigher), "error-ccm"},
    CodeName{Code(cfm::Defects::kXconCcmOnly), "xcon-ccm"},
    CodeName{Code(cfm::Defects::kNone), "none"},
};
constexpr std::array kFaultActions = {
    CodeName{Code(cfm::FaultAction::kNone), "none"},
    CodeName{Code(cfm::FaultAction::kBlock), "block"},
    CodeName{Code(cfm::FaultAction::kShutdown), "shutdown"},
};
constexpr std::array kMdFormats = {
    CodeName{kMdFormatNone, "none"},
    CodeName{kMdFormatDns, "dns"},
    CodeName{kMdFormatMac, "mac"},
    CodeName{kMdFormatString, "string"},
};
constexpr std::array kMaFormats = {
    CodeName{kMaFormatVid, "vid"},      CodeName{kMaFormatString, "string"}, CodeName{kMaFormatUint16, "uint16"},
    CodeName{kMaFormatVpnId, "vpn-id"}, CodeName{kMaFormatIcc, "icc"},
};
constexpr std::array kDirections = {CodeName{kDirectionDown, "down"}, CodeName{kDirectionUp, "up"}};

char Lower(char letter) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
}

bool SameIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return Lower(x) == Lower(y); });
}

std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t substituted = diagonal + (Lower(a[i - 1]) == Lower(b[j - 1]) ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({substituted, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row[b.size()];
}

}  // namespace

const CodeNames kSenderIdNames = kSenderIds;
const CodeNames kMhfCreationNames = kMhfCreations;
const CodeNames kCcmIntervalNames = kCcmIntervals;
const CodeNames kLowestAlarmNames = kLowestAlarms;
const CodeNames kFaultActionNames = kFaultActions;
const CodeNames kMdFormatNames = kMdFormats;
const CodeNames kMaFormatNames = kMaFormats;
const CodeNames kDirectionNames = kDirections;

std::string NameOf(CodeNames names, std::uint32_t code) {
  for (const CodeName& entry : names) {
    if (entry.code == code) return std::string(entry.name);
  }
  return "code " + std::to_string(code);
}

std::optional<std::uint32_t> CodeOf(CodeNames names, std::string_view text) {
  for (const CodeName& entry : names) {
    if (SameIgnoringCase(entry.name, text)) return entry.code;
  }
  return std::nullopt;
}

std::string ListOf(CodeNames names) {
  std::string list;
  for (const CodeName& entry : names) {
    if (!list.empty()) list += ", ";
    list += entry.name;
  }
  return list;
}

std::string_view Nearest(std::string_view text, std::span<const std::string_view> candidates) {
  // More slips than a third of the word, and it is another word. The length bound keeps hostile input cheap.
  constexpr std::size_t kLongest = 64;
  if (text.size() > kLongest) return {};
  std::string_view nearest;
  std::size_t best = std::max<std::size_t>(1, text.size() / 3) + 1;
  for (const std::string_view candidate : candidates) {
    const std::size_t distance = EditDistance(text, candidate);
    if (distance < best) {
      best = distance;
      nearest = candidate;
    }
  }
  return nearest;
}

std::string_view Nearest(std::string_view text, CodeNames names) {
  std::vector<std::string_view> candidates;
  for (const CodeName& entry : names) candidates.push_back(entry.name);
  return Nearest(text, candidates);
}

}  // namespace cfmctl
