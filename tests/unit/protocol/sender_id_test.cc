#include "protocol/sender_id.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace cfm::protocol {
namespace {

using Permission = SenderIdPermission;

const SystemId kSystem = {.chassis_subtype = 4,
                          .chassis_id = {2, 0, 0, 0, 0, 0xab},
                          .management_domain = {43, 6},
                          .management_address = {'m', 'g', 'm', 't'}};

TEST(ASenderId, HoldsWhatIsPermittedByTheAssociationOrByItsDomain) {
  for (const auto ma :
       {Permission::kNone, Permission::kChassis, Permission::kManage, Permission::kChassisManage, Permission::kDefer}) {
    for (const auto md : {Permission::kNone, Permission::kChassis, Permission::kManage, Permission::kChassisManage,
                          Permission::kDefer}) {
      const auto effective = ma == Permission::kDefer ? md : ma;
      const bool chassis = effective == Permission::kChassis || effective == Permission::kChassisManage;
      const bool manage = effective == Permission::kManage || effective == Permission::kChassisManage;
      const auto permitted = Permitted(kSystem, ma, md);
      ASSERT_EQ(permitted.has_value(), chassis || manage) << static_cast<int>(ma) << " " << static_cast<int>(md);
      if (!permitted) continue;
      EXPECT_EQ(!permitted->chassis_id.empty(), chassis);
      EXPECT_EQ(!permitted->management_domain.empty(), manage);
      EXPECT_EQ(!permitted->management_address.empty(), manage);
    }
  }
}

TEST(ASenderId, IsComparedAndTakenOverOctetByOctet) {
  SystemId stored;
  EXPECT_FALSE(SaysTheSame(stored, ToSenderId(kSystem)));
  Assign(stored, ToSenderId(kSystem));
  EXPECT_EQ(stored, kSystem);
  EXPECT_TRUE(SaysTheSame(stored, ToSenderId(kSystem)));
  stored.management_address.push_back(0);
  EXPECT_FALSE(SaysTheSame(stored, ToSenderId(kSystem)));
}

TEST(ASenderIdAsText, ShowsAnAddressAsSuch) {
  EXPECT_EQ(ToText({.chassis_subtype = 4, .chassis_id = {2, 0, 0, 0, 0, 0xab}}), "02:00:00:00:00:ab");
  EXPECT_EQ(ToText({.chassis_subtype = 4, .chassis_id = {2}}), "\\x02");
}

TEST(ASenderIdAsText, AppendsTheManagementAddress) {
  EXPECT_EQ(ToText(kSystem), "02:00:00:00:00:ab mgmt");
}

TEST(ASenderIdAsText, EscapesWhateverIsNotPrintable) {
  EXPECT_EQ(ToText({.chassis_subtype = 7, .chassis_id = {'a', '\\', 0, 0x1f, ' ', '~', 0x7f, 0xff}}),
            "a\\x5c\\x00\\x1f ~\\x7f\\xff");
}

TEST(ASenderIdAsText, IsPrintableAndShortWhateverTheOctetsAre) {
  for (int octet = 0; octet < 256; ++octet) {
    const SystemId system{.chassis_subtype = 7,
                          .chassis_id = std::vector<std::uint8_t>(255, static_cast<std::uint8_t>(octet)),
                          .management_address = {1, 2, 3}};
    const std::string text = ToText(system);
    EXPECT_LE(text.size(), 255U);
    EXPECT_GE(text.size(), 252U);
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7f; }));
  }
}

}  // namespace
}  // namespace cfm::protocol
