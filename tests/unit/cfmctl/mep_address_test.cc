#include "mep_address.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure.h"

namespace cfmctl {
namespace {

Model TwoDomains() {
  Model model;
  cfm::hierarchy_ma& ma = model.hierarchy.mds["operator"].mas["evc-100"];
  ma.cfg.mep_ids = {1, 2, 3};
  ma.meps[1].cfg.aux_flag = false;
  ma.meps[2].cfg.aux_flag = true;
  model.hierarchy.mds["\x1b"].mas["none"];
  return model;
}

// The message; empty when it is valid.
template <class Address>
std::string Objection(const Address& address) {
  try {
    Validate(address, TwoDomains());
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), kBadInput);
    return failure.what();
  }
  return {};
}

TestAddress Aimed(const std::string& md, const std::string& ma, std::uint16_t mep_id, std::uint16_t target) {
  return {.md_name = md, .ma_name = ma, .mep_id = mep_id, .target_mep_id = target};
}

Scope In(const std::string& md, const std::string& ma = {}, std::uint16_t mep_id = 0) {
  return {.md_name = md, .ma_name = ma, .mep_id = mep_id};
}

TEST(AScope, HoldsWhatItDoesNotExclude) {
  EXPECT_TRUE(Scope().Holds("d", "a", 1));
  EXPECT_TRUE(In("d").Holds("d", "a", 1));
  EXPECT_FALSE(In("d").Holds("e", "a", 1));
  EXPECT_TRUE(In("d", "a").Holds("d", "a", 7));
  EXPECT_FALSE(In("d", "a").Holds("d", "b", 7));
  EXPECT_TRUE(In("d", "a", 7).Holds("d", "a", 7));
  EXPECT_FALSE(In("d", "a", 7).Holds("d", "a", 8));
}

TEST(AScope, IsNamedPrintably) {
  EXPECT_EQ(ScopeText(Scope()), "everything");
  EXPECT_EQ(ScopeText(In("\x1b")), "domain \\x1b");
  EXPECT_EQ(ScopeText(In("d", "a")), "association d/a");
  EXPECT_EQ(ScopeText(In("d", "a", 7)), "d/a MEP 7");
}

TEST(AScope, MustBeInTheConfiguration) {
  EXPECT_EQ(Objection(Scope()), "");
  EXPECT_EQ(Objection(In("operator")), "");
  EXPECT_EQ(Objection(In("operator", "evc-100", 2)), "");
  EXPECT_EQ(Objection(In("operater")), "the configuration file has no domain operater; did you mean operator?");
  EXPECT_EQ(Objection(In("unlike-any\n")),
            "the configuration file has no domain unlike-any\\x0a; 'cfmctl check' prints what it has");
  EXPECT_EQ(Objection(In("operator", "evc-10")), "domain operator has no association evc-10; did you mean evc-100?");
  EXPECT_EQ(Objection(In("operator", "evc-100", 3)),
            "association operator/evc-100 has no end point 3 on this element; it has 1,2");
  EXPECT_EQ(Objection(In("\x1b", "none", 3)), "association \\x1b/none has no end point 3 on this element; it has none");
}

TEST(ATestAddress, GoesFromAnEndPointToAnotherMepOfItsAssociation) {
  EXPECT_EQ(Objection(Aimed("operator", "evc-100", 1, 3)), "");
  EXPECT_EQ(Objection(Aimed("operator", "evc-100", 3, 1)),
            "association operator/evc-100 has no end point 3 on this element; it has 1,2");
  EXPECT_EQ(Objection(Aimed("operator", "evc-100", 1, 1)), "the target is the sending end point itself");
  EXPECT_EQ(Objection(Aimed("operator", "evc-100", 1, 4)),
            "MEP 4 is not in the MEP list of association operator/evc-100: 1-3");
}

TEST(ATestAddress, OfAnEndPointThatLearnsMayNameAnyTarget) {
  EXPECT_EQ(Objection(Aimed("operator", "evc-100", 2, 4)), "");
  EXPECT_EQ(Objection(Aimed("operator", "evc-100", 2, 2)), "the target is the sending end point itself");
}

TEST(ATestAddress, IsPrintable) {
  EXPECT_EQ(TestText(Aimed("d", "\x1b", 1, 2)), "d/\\x1b MEP 1 -> MEP 2");
}

}  // namespace
}  // namespace cfmctl
