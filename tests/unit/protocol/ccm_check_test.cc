#include "protocol/ccm_check.h"

#include <gtest/gtest.h>

namespace cfm::protocol {
namespace {

pdu::Maid MaidOf(std::uint8_t number) {
  pdu::Maid maid;
  maid.octets[0] = number;
  return maid;
}

const pdu::Maid kOwn = MaidOf(1);

CcmVerdict Check(const pdu::Ccm& ccm, bool id_accepted = true) {
  return CheckCcm(ccm, {.level = 5, .maid = kOwn, .own_id = 1, .interval = 4, .id_accepted = id_accepted});
}

pdu::Ccm Good() {
  return {.level = 5, .interval = 4, .mep_id = 2, .maid = kOwn};
}

TEST(ACcm, IsValidWhenLevelMaidIdAndIntervalFit) {
  EXPECT_EQ(Check(Good()), CcmVerdict::kValid);
}

TEST(ACcm, OfALowerLevelIsACrossConnect) {
  pdu::Ccm ccm = Good();
  ccm.level = 4;
  EXPECT_EQ(Check(ccm), CcmVerdict::kLevel);
  EXPECT_TRUE(IsCrossConnect(CcmVerdict::kLevel));
}

TEST(ACcm, OfAnotherMaidIsACrossConnectEvenIfOnlyThePaddingDiffers) {
  pdu::Ccm ccm = Good();
  ccm.maid.octets[47] = 1;
  EXPECT_EQ(Check(ccm), CcmVerdict::kMaid);
  EXPECT_TRUE(IsCrossConnect(CcmVerdict::kMaid));
}

TEST(ACcm, WithTheOwnIdAnUnknownIdOrAnotherIntervalIsAnError) {
  pdu::Ccm ccm = Good();
  ccm.mep_id = 1;
  EXPECT_EQ(Check(ccm), CcmVerdict::kOwnId);
  EXPECT_EQ(Check(Good(), false), CcmVerdict::kUnknownId);
  ccm = Good();
  ccm.interval = 5;
  EXPECT_EQ(Check(ccm), CcmVerdict::kInterval);
  for (const auto verdict : {CcmVerdict::kOwnId, CcmVerdict::kUnknownId, CcmVerdict::kInterval}) {
    EXPECT_FALSE(IsCrossConnect(verdict));
  }
}

TEST(ACcm, ThatIsWrongInSeveralWaysIsJudgedByTheFirst) {
  pdu::Ccm ccm{.level = 4, .interval = 5, .mep_id = 1, .maid = MaidOf(2)};
  EXPECT_EQ(Check(ccm, false), CcmVerdict::kLevel);
  ccm.level = 5;
  EXPECT_EQ(Check(ccm, false), CcmVerdict::kMaid);
  ccm.maid = kOwn;
  EXPECT_EQ(Check(ccm, false), CcmVerdict::kOwnId);
  ccm.mep_id = 3;
  EXPECT_EQ(Check(ccm, false), CcmVerdict::kUnknownId);
  EXPECT_EQ(Check(ccm, true), CcmVerdict::kInterval);
}

}  // namespace
}  // namespace cfm::protocol
