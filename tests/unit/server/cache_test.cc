#include "contract/cache.h"

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/reflection.h>

#include <string>
#include <vector>

#include "contract/merge.h"
#include "from_text.h"

namespace cfm::contract {

void PrintTo(const ObjectKey& key, std::ostream* out) {
  *out << ToText(key);
}

namespace {

namespace pb = client_server;
using cfm_test::From;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ACache : public testing::Test {
 protected:
  template <typename Request>
  Outcome Apply(const std::string& text) {
    return cache_.Apply(From<Request>(text));
  }

  // The change that a request made; a refusal fails the test.
  template <typename Request>
  Change Changed(const std::string& text) {
    const Outcome outcome = Apply<Request>(text);
    if (const auto* change = std::get_if<Change>(&outcome)) return *change;
    ADD_FAILURE() << "refused: " << std::get<Refusal>(outcome).text;
    return {Effect::kUnchanged, DomainKey{}};
  }

  template <typename Request>
  Effect EffectOf(const std::string& text) {
    return Changed<Request>(text).effect;
  }

  // The reason and text of a refusal, and that it changed nothing.
  template <typename Request>
  Refusal Refused(const std::string& text) {
    const std::string before = Text();
    const Outcome outcome = Apply<Request>(text);
    EXPECT_EQ(Text(), before);
    if (const auto* refusal = std::get_if<Refusal>(&outcome)) return *refusal;
    ADD_FAILURE() << "not refused: " << text;
    return {};
  }

  void Domain(const std::string& name) { Changed<pb::OpCreateMaintenanceDomain>("name: '" + name + "'"); }
  void Association(const std::string& md, const std::string& ma) {
    Changed<pb::OpCreateMaintenanceAssociation>("md_name: '" + md + "' ma_name: '" + ma + "'");
  }
  void Endpoint(const std::string& md, const std::string& ma, int id) {
    Changed<pb::OpCreateMaintenanceEndpoint>(EndpointText(md, ma, id));
  }
  static std::string EndpointText(const std::string& md, const std::string& ma, int id) {
    return "md_name: '" + md + "' ma_name: '" + ma + "' mep_id: " + std::to_string(id);
  }
  void Tree() {
    Domain("d");
    Association("d", "a");
    Endpoint("d", "a", 1);
  }

  std::string Text() const { return cache_.Snapshot().ShortDebugString(); }

  Cache cache_;
};

TEST_F(ACache, IsEmptyAtFirst) {
  EXPECT_EQ(Text(), "");
}

TEST_F(ACache, HoldsEachCreateRequestAsItCame) {
  const std::string domain = "name: \"d\" format: 4 level: 255 sender_id: 0 mhf_creation: 4294967295";
  const std::string association =
      "md_name: \"d\" ma_name: \"a\" format: 32 ccm_interval: 1 sender_id: 5 mhf_creation: 4 vids: 30 vids: 10 vids: "
      "30 "
      "mep_ids: 1 mep_ids: 2 ais { enabled: true aux_flag: false aux_u8: 6 aux_u32: 60 aux_u16: 7 aux_ids: 100 }";
  const std::string endpoint =
      "md_name: \"d\" ma_name: \"a\" mep_id: 8191 direction: 2 ifindex: 7 primary_vid: 100 inner_vid: 0 ccm_priority: "
      "7 "
      "admin_state: true tx_ccm_enabled: false aux_flag: true lowest_prio_defect_allowed: 6 fng_alarm_time: 250 "
      "fng_reset_time: 1000 action: 2";
  const std::string probe =
      "ma_name: \"a\" md_name: \"d\" probe_id: 3 interval: 900 local_mep_id: 8191 remote_mep_id: 2";
  const std::string session = "probe_id: 3 session_id: 1 interval: 100 count: 10 size: 64 pcp: 255";
  EXPECT_EQ(EffectOf<pb::OpCreateMaintenanceDomain>(domain), Effect::kCreated);
  EXPECT_EQ(EffectOf<pb::OpCreateMaintenanceAssociation>(association), Effect::kCreated);
  EXPECT_EQ(EffectOf<pb::OpCreateMaintenanceEndpoint>(endpoint), Effect::kCreated);
  EXPECT_EQ(EffectOf<pb::OpCreateDelayMeasurementProbe>(probe), Effect::kCreated);
  EXPECT_EQ(EffectOf<pb::OpCreateDelayMeasurementSession>(session), Effect::kCreated);

  const pb::OpCacheSync snapshot = cache_.Snapshot();
  ASSERT_EQ(snapshot.domains_size(), 1);
  EXPECT_EQ(snapshot.domains(0).ShortDebugString(), domain);
  ASSERT_EQ(snapshot.associations_size(), 1);
  EXPECT_EQ(snapshot.associations(0).ShortDebugString(), association);
  ASSERT_EQ(snapshot.endpoints_size(), 1);
  EXPECT_EQ(snapshot.endpoints(0).ShortDebugString(), endpoint);
  ASSERT_EQ(snapshot.probes_size(), 1);
  EXPECT_EQ(snapshot.probes(0).ShortDebugString(), probe);
  ASSERT_EQ(snapshot.sessions_size(), 1);
  EXPECT_EQ(snapshot.sessions(0).ShortDebugString(), session);
}

TEST_F(ACache, KeepsFieldsOfLaterSchemas) {
  pb::OpCreateMaintenanceDomain request = From<pb::OpCreateMaintenanceDomain>("name: 'd'");
  request.GetReflection()->MutableUnknownFields(&request)->AddVarint(900, 5);
  cache_.Apply(request);
  EXPECT_EQ(cache_.Snapshot().domains(0).SerializeAsString(), request.SerializeAsString());
}

TEST_F(ACache, ListsEachKindInOrderOfItsKeysNamesByOctets) {
  for (const char* md : {"b", "", "a", "\\377", "B"}) {
    Domain(md);
    for (const char* ma : {"y", "x"}) {
      Association(md, ma);
      for (const int id : {300, 2, 1}) Endpoint(md, ma, id);
    }
  }
  for (const int id : {9, 1}) {
    Changed<pb::OpCreateDelayMeasurementProbe>("probe_id: " + std::to_string(id));
    for (const int session : {2, 1}) {
      Changed<pb::OpCreateDelayMeasurementSession>("probe_id: " + std::to_string(id) +
                                                   " session_id: " + std::to_string(session));
    }
  }
  const pb::OpCacheSync snapshot = cache_.Snapshot();
  std::vector<std::string> domains;
  for (const auto& domain : snapshot.domains()) domains.push_back(domain.name());
  EXPECT_THAT(domains, ElementsAre("", "B", "a", "b", "\xff"));
  std::vector<EndpointKey> endpoints;
  for (const auto& e : snapshot.endpoints()) {
    endpoints.push_back({e.md_name(), e.ma_name(), static_cast<uint16_t>(e.mep_id())});
  }
  EXPECT_EQ(endpoints.size(), 30U);
  EXPECT_TRUE(std::is_sorted(endpoints.begin(), endpoints.end()));
  std::vector<SessionKey> sessions;
  for (const auto& s : snapshot.sessions()) {
    sessions.push_back({static_cast<uint16_t>(s.probe_id()), static_cast<uint16_t>(s.session_id())});
  }
  EXPECT_THAT(sessions, ElementsAre(SessionKey{1, 1}, SessionKey{1, 2}, SessionKey{9, 1}, SessionKey{9, 2}));
}

// ---- Create for an existing key ----

TEST_F(ACache, ReplacesADomainAndKeepsItsChildren) {
  Tree();
  const Change change = Changed<pb::OpCreateMaintenanceDomain>("name: 'd' level: 3");
  EXPECT_EQ(change.effect, Effect::kReplaced);
  EXPECT_EQ(change.object, ObjectKey(DomainKey{"d"}));
  EXPECT_THAT(change.removed, IsEmpty());
  EXPECT_EQ(cache_.Snapshot().domains(0).level(), 3U);
  EXPECT_EQ(cache_.Snapshot().associations_size(), 1);
  EXPECT_EQ(cache_.Snapshot().endpoints_size(), 1);
}

TEST_F(ACache, ReplacesAnAssociationAndKeepsItsEndPoints) {
  Tree();
  EXPECT_EQ(EffectOf<pb::OpCreateMaintenanceAssociation>("md_name: 'd' ma_name: 'a' vids: 5"), Effect::kReplaced);
  EXPECT_EQ(cache_.Snapshot().associations(0).vids(0), 5U);
  EXPECT_EQ(cache_.Snapshot().endpoints_size(), 1);
}

TEST_F(ACache, ReplacesAnEndPointWholeSoThatAbsentFieldsGo) {
  Tree();
  Changed<pb::OpCreateMaintenanceEndpoint>(EndpointText("d", "a", 1) + " primary_vid: 5");
  EXPECT_EQ(EffectOf<pb::OpCreateMaintenanceEndpoint>(EndpointText("d", "a", 1) + " action: 1"), Effect::kReplaced);
  EXPECT_EQ(cache_.Snapshot().endpoints(0).ShortDebugString(), "md_name: \"d\" ma_name: \"a\" mep_id: 1 action: 1");
}

TEST_F(ACache, ReplacesAProbeAndKeepsItsSessions) {
  Changed<pb::OpCreateDelayMeasurementProbe>("probe_id: 1 md_name: 'd'");
  Changed<pb::OpCreateDelayMeasurementSession>("probe_id: 1 session_id: 2");
  EXPECT_EQ(EffectOf<pb::OpCreateDelayMeasurementProbe>("probe_id: 1 md_name: 'e'"), Effect::kReplaced);
  EXPECT_EQ(Text(), "probes { md_name: \"e\" probe_id: 1 } sessions { probe_id: 1 session_id: 2 }");
}

TEST_F(ACache, ReplacesASession) {
  Changed<pb::OpCreateDelayMeasurementProbe>("probe_id: 1");
  Changed<pb::OpCreateDelayMeasurementSession>("probe_id: 1 session_id: 2 count: 1");
  EXPECT_EQ(EffectOf<pb::OpCreateDelayMeasurementSession>("probe_id: 1 session_id: 2 count: 2"), Effect::kReplaced);
  EXPECT_EQ(cache_.Snapshot().sessions(0).count(), 2U);
}

TEST_F(ACache, SaysUnchangedWhenACreateRequestRepeatsWhatIsKnown) {
  Changed<pb::OpCreateDelayMeasurementProbe>("probe_id: 1");
  Changed<pb::OpCreateDelayMeasurementSession>("probe_id: 1 session_id: 2");
  Tree();
  EXPECT_EQ(EffectOf<pb::OpCreateMaintenanceDomain>("name: 'd'"), Effect::kUnchanged);
  EXPECT_EQ(EffectOf<pb::OpCreateMaintenanceAssociation>("md_name: 'd' ma_name: 'a'"), Effect::kUnchanged);
  EXPECT_EQ(EffectOf<pb::OpCreateMaintenanceEndpoint>(EndpointText("d", "a", 1)), Effect::kUnchanged);
  EXPECT_EQ(EffectOf<pb::OpCreateDelayMeasurementProbe>("probe_id: 1"), Effect::kUnchanged);
  EXPECT_EQ(EffectOf<pb::OpCreateDelayMeasurementSession>("probe_id: 1 session_id: 2"), Effect::kUnchanged);
}

// ---- Update ----

TEST_F(ACache, TakesOverWhatIsPresentInAnUpdateOnly) {
  Changed<pb::OpCreateMaintenanceDomain>("name: 'd' format: 4 level: 3 sender_id: 1 mhf_creation: 2");
  const Change change = Changed<pb::OpUpdateMaintenanceDomain>("name: 'd' sender_id: 5");
  EXPECT_EQ(change.effect, Effect::kUpdated);
  EXPECT_EQ(change.object, ObjectKey(DomainKey{"d"}));
  EXPECT_EQ(Text(), "domains { name: \"d\" format: 4 level: 3 sender_id: 5 mhf_creation: 2 }");
}

TEST_F(ACache, ReplacesTheListOfMepIdsByAnUpdatesEvenWhenThatIsEmpty) {
  Domain("d");
  Changed<pb::OpCreateMaintenanceAssociation>("md_name: 'd' ma_name: 'a' vids: 9 mep_ids: 1 mep_ids: 2");
  EXPECT_EQ(EffectOf<pb::OpUpdateMaintenanceAssociation>("md_name: 'd' ma_name: 'a' mep_ids: 3"), Effect::kUpdated);
  EXPECT_EQ(cache_.Snapshot().associations(0).ShortDebugString(), "md_name: \"d\" ma_name: \"a\" vids: 9 mep_ids: 3");
  EXPECT_EQ(EffectOf<pb::OpUpdateMaintenanceAssociation>("md_name: 'd' ma_name: 'a'"), Effect::kUpdated);
  EXPECT_EQ(cache_.Snapshot().associations(0).ShortDebugString(), "md_name: \"d\" ma_name: \"a\" vids: 9");
}

TEST_F(ACache, ReplacesTheAisPartByAnUpdatesAsAWhole) {
  Domain("d");
  Changed<pb::OpCreateMaintenanceAssociation>(
      "md_name: 'd' ma_name: 'a' ais { enabled: true aux_flag: true aux_u8: 5 aux_ids: 1 aux_ids: 2 }");
  Changed<pb::OpUpdateMaintenanceAssociation>("md_name: 'd' ma_name: 'a' ais { enabled: false aux_flag: false }");
  EXPECT_EQ(cache_.Snapshot().associations(0).ais().ShortDebugString(), "enabled: false aux_flag: false");
}

TEST_F(ACache, KeepsTheAisPartWhenAnUpdateHasNone) {
  Domain("d");
  Changed<pb::OpCreateMaintenanceAssociation>("md_name: 'd' ma_name: 'a' ais { enabled: true }");
  EXPECT_EQ(EffectOf<pb::OpUpdateMaintenanceAssociation>("md_name: 'd' ma_name: 'a'"), Effect::kUnchanged);
  EXPECT_TRUE(cache_.Snapshot().associations(0).ais().enabled());
}

TEST_F(ACache, SaysUnchangedWhenAnUpdateRepeatsWhatIsKnown) {
  Domain("d");
  Changed<pb::OpCreateMaintenanceAssociation>(
      "md_name: 'd' ma_name: 'a' ccm_interval: 4 mep_ids: 1 mep_ids: 2 ais { enabled: true aux_u32: 60 }");
  Changed<pb::OpCreateMaintenanceEndpoint>(EndpointText("d", "a", 1) + " action: 1 admin_state: true");
  EXPECT_EQ(EffectOf<pb::OpUpdateMaintenanceDomain>("name: 'd'"), Effect::kUnchanged);
  EXPECT_EQ(EffectOf<pb::OpUpdateMaintenanceAssociation>("md_name: 'd' ma_name: 'a' ccm_interval: 4 mep_ids: 1 "
                                                         "mep_ids: 2 ais { enabled: true aux_u32: 60 }"),
            Effect::kUnchanged);
  EXPECT_EQ(EffectOf<pb::OpUpdateMaintenanceEndpoint>(EndpointText("d", "a", 1) + " admin_state: true"),
            Effect::kUnchanged);
}

// A value that differs from every default.
void SetField(const FieldDescriptor* field, Message* message) {
  const auto* reflection = message->GetReflection();
  if (field->is_repeated()) {
    reflection->AddUInt32(message, field, 77);
  } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_UINT32) {
    reflection->SetUInt32(message, field, 77);
  } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_BOOL) {
    reflection->SetBool(message, field, true);
  } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
    reflection->SetString(message, field, "seventy-seven");
  } else {
    Message* part = reflection->MutableMessage(message, field);
    for (int i = 0; i < part->GetDescriptor()->field_count(); ++i) SetField(part->GetDescriptor()->field(i), part);
  }
}

template <typename Pair>
class EveryFieldOfAnUpdate : public testing::Test {};

template <typename UpdateMessage, typename CreateMessage>
struct Pair {
  using Update = UpdateMessage;
  using Create = CreateMessage;
};
using Pairs = testing::Types<Pair<pb::OpUpdateMaintenanceDomain, pb::OpCreateMaintenanceDomain>,
                             Pair<pb::OpUpdateMaintenanceAssociation, pb::OpCreateMaintenanceAssociation>,
                             Pair<pb::OpUpdateMaintenanceEndpoint, pb::OpCreateMaintenanceEndpoint>>;
TYPED_TEST_SUITE(EveryFieldOfAnUpdate, Pairs);

TYPED_TEST(EveryFieldOfAnUpdate, ReachesTheFieldOfTheSameNameAndTypeAndNoOther) {
  const auto* descriptor = TypeParam::Update::descriptor();
  for (int i = 0; i < descriptor->field_count(); ++i) {
    const FieldDescriptor* from = descriptor->field(i);
    SCOPED_TRACE(from->full_name());
    const FieldDescriptor* to = TypeParam::Create::descriptor()->FindFieldByName(from->name());
    ASSERT_NE(to, nullptr);
    ASSERT_EQ(to->type(), from->type());
    ASSERT_EQ(to->is_repeated(), from->is_repeated());
    ASSERT_EQ(to->message_type(), from->message_type());

    typename TypeParam::Update update;
    SetField(from, &update);
    typename TypeParam::Create expected;
    SetField(to, &expected);
    typename TypeParam::Create merged;
    MergeUpdate(update, &merged);
    EXPECT_EQ(merged.ShortDebugString(), expected.ShortDebugString());
  }
}

// ---- Delete ----

TEST_F(ACache, RemovesADomainWithAllBelowIt) {
  Tree();
  Endpoint("d", "a", 2);
  Association("d", "b");
  Domain("other");
  Association("other", "a");
  const Change change = Changed<pb::OpDeleteMaintenanceDomain>("name: 'd'");
  EXPECT_EQ(change.effect, Effect::kRemoved);
  EXPECT_EQ(change.object, ObjectKey(DomainKey{"d"}));
  EXPECT_THAT(change.removed, ElementsAre(EndpointKey{"d", "a", 1}, EndpointKey{"d", "a", 2}, AssociationKey{"d", "a"},
                                          AssociationKey{"d", "b"}, DomainKey{"d"}));
  EXPECT_EQ(Text(), "domains { name: \"other\" } associations { md_name: \"other\" ma_name: \"a\" }");
}

TEST_F(ACache, RemovesAnAssociationWithItsEndPoints) {
  Tree();
  Association("d", "b");
  Endpoint("d", "b", 1);
  const Change change = Changed<pb::OpDeleteMaintenanceAssociation>("md_name: 'd' ma_name: 'a'");
  EXPECT_EQ(change.effect, Effect::kRemoved);
  EXPECT_THAT(change.removed, ElementsAre(EndpointKey{"d", "a", 1}, AssociationKey{"d", "a"}));
  EXPECT_EQ(cache_.Snapshot().associations_size(), 1);
  EXPECT_EQ(cache_.Snapshot().endpoints_size(), 1);
}

TEST_F(ACache, RemovesOneEndPoint) {
  Tree();
  Endpoint("d", "a", 2);
  const Change change = Changed<pb::OpDeleteMaintenanceEndpoint>(EndpointText("d", "a", 1));
  EXPECT_THAT(change.removed, ElementsAre(EndpointKey{"d", "a", 1}));
  ASSERT_EQ(cache_.Snapshot().endpoints_size(), 1);
  EXPECT_EQ(cache_.Snapshot().endpoints(0).mep_id(), 2U);
}

TEST_F(ACache, RemovesAProbeWithItsSessions) {
  for (const char* id : {"1", "2"}) {
    Changed<pb::OpCreateDelayMeasurementProbe>(std::string("probe_id: ") + id);
    Changed<pb::OpCreateDelayMeasurementSession>(std::string("session_id: 7 probe_id: ") + id);
  }
  const Change change = Changed<pb::OpDeleteDelayMeasurementProbe>("probe_id: 1");
  EXPECT_THAT(change.removed, ElementsAre(SessionKey{1, 7}, ProbeKey{1}));
  EXPECT_EQ(Text(), "probes { probe_id: 2 } sessions { probe_id: 2 session_id: 7 }");
}

TEST_F(ACache, RemovesOneSession) {
  Changed<pb::OpCreateDelayMeasurementProbe>("probe_id: 1");
  Changed<pb::OpCreateDelayMeasurementSession>("probe_id: 1 session_id: 7");
  const Change change = Changed<pb::OpDeleteDelayMeasurementSession>("probe_id: 1 session_id: 7");
  EXPECT_THAT(change.removed, ElementsAre(SessionKey{1, 7}));
  EXPECT_EQ(Text(), "probes { probe_id: 1 }");
}

TEST_F(ACache, KeepsProbesWhoseEndPointsAreRemovedOrWereNeverThere) {
  Tree();
  Changed<pb::OpCreateDelayMeasurementProbe>("probe_id: 1 md_name: 'd' ma_name: 'a' local_mep_id: 1");
  Changed<pb::OpCreateDelayMeasurementProbe>("probe_id: 2 md_name: 'none' ma_name: 'none' local_mep_id: 1");
  Changed<pb::OpDeleteMaintenanceDomain>("name: 'd'");
  EXPECT_EQ(cache_.Snapshot().probes_size(), 2);
}

// ---- Refusals ----

TEST_F(ACache, RefusesARequestThatLacksAPartOfItsKey) {
  Tree();
  Changed<pb::OpCreateDelayMeasurementProbe>("probe_id: 0");
  const auto expect = [](const Refusal& refusal, const std::string& field) {
    EXPECT_EQ(refusal.reason, Reason::kKeyIncomplete);
    EXPECT_EQ(refusal.text, field + " is missing");
  };
  expect(Refused<pb::OpCreateMaintenanceDomain>("level: 1"), "name");
  expect(Refused<pb::OpUpdateMaintenanceDomain>("sender_id: 1"), "name");
  expect(Refused<pb::OpDeleteMaintenanceDomain>(""), "name");
  expect(Refused<pb::OpCreateMaintenanceAssociation>("ma_name: 'a'"), "md_name");
  expect(Refused<pb::OpCreateMaintenanceAssociation>("md_name: 'd'"), "ma_name");
  expect(Refused<pb::OpUpdateMaintenanceAssociation>("md_name: 'd'"), "ma_name");
  expect(Refused<pb::OpDeleteMaintenanceAssociation>("md_name: 'd'"), "ma_name");
  expect(Refused<pb::OpCreateMaintenanceEndpoint>("ma_name: 'a' mep_id: 1"), "md_name");
  expect(Refused<pb::OpCreateMaintenanceEndpoint>("md_name: 'd' mep_id: 1"), "ma_name");
  expect(Refused<pb::OpCreateMaintenanceEndpoint>("md_name: 'd' ma_name: 'a'"), "mep_id");
  expect(Refused<pb::OpUpdateMaintenanceEndpoint>("md_name: 'd' ma_name: 'a'"), "mep_id");
  expect(Refused<pb::OpDeleteMaintenanceEndpoint>("md_name: 'd' ma_name: 'a'"), "mep_id");
  expect(Refused<pb::OpCreateDelayMeasurementProbe>("md_name: 'd'"), "probe_id");
  expect(Refused<pb::OpDeleteDelayMeasurementProbe>(""), "probe_id");
  expect(Refused<pb::OpCreateDelayMeasurementSession>("session_id: 1"), "probe_id");
  expect(Refused<pb::OpCreateDelayMeasurementSession>("probe_id: 0"), "session_id");
  expect(Refused<pb::OpDeleteDelayMeasurementSession>("probe_id: 0"), "session_id");
}

TEST_F(ACache, TakesAnEmptyNameAndIdZeroForKeys) {
  Tree();
  Domain("");
  Association("", "");
  Endpoint("", "", 0);
  EXPECT_NE(cache_.FindEndpoint("", "", 0), nullptr);
}

TEST_F(ACache, RefusesIdsAbove65535InsteadOfCuttingThem) {
  Tree();
  Endpoint("d", "a", 65535);
  Changed<pb::OpCreateDelayMeasurementProbe>("probe_id: 1");
  Changed<pb::OpCreateDelayMeasurementSession>("probe_id: 1 session_id: 65535");
  const auto expect = [](const Refusal& refusal, const std::string& text) {
    EXPECT_EQ(refusal.reason, Reason::kKeyOutOfRange);
    EXPECT_EQ(refusal.text, text);
  };
  expect(Refused<pb::OpCreateMaintenanceEndpoint>(EndpointText("d", "a", 65536)), "mep_id 65536 is above 65535");
  expect(Refused<pb::OpUpdateMaintenanceEndpoint>(EndpointText("d", "a", 65537)), "mep_id 65537 is above 65535");
  expect(Refused<pb::OpDeleteMaintenanceEndpoint>(EndpointText("d", "a", 65537)), "mep_id 65537 is above 65535");
  expect(Refused<pb::OpCreateDelayMeasurementProbe>("probe_id: 4294967295"), "probe_id 4294967295 is above 65535");
  expect(Refused<pb::OpDeleteDelayMeasurementProbe>("probe_id: 65537"), "probe_id 65537 is above 65535");
  expect(Refused<pb::OpCreateDelayMeasurementSession>("probe_id: 1 session_id: 65536"),
         "session_id 65536 is above 65535");
  expect(Refused<pb::OpDeleteDelayMeasurementSession>("probe_id: 65537 session_id: 1"),
         "probe_id 65537 is above 65535");
  EXPECT_EQ(cache_.FindEndpoint("d", "a", 65537), nullptr);
}

TEST_F(ACache, RefusesWhatNamesAMissingParent) {
  Tree();
  const auto expect = [](const Refusal& refusal, const std::string& text) {
    EXPECT_EQ(refusal.reason, Reason::kNoParent);
    EXPECT_EQ(refusal.text, text);
  };
  expect(Refused<pb::OpCreateMaintenanceAssociation>("md_name: 'x' ma_name: 'a'"), "there is no domain 'x'");
  expect(Refused<pb::OpCreateMaintenanceEndpoint>(EndpointText("x", "a", 1)), "there is no association 'x'/'a'");
  expect(Refused<pb::OpCreateMaintenanceEndpoint>(EndpointText("d", "x", 1)), "there is no association 'd'/'x'");
  expect(Refused<pb::OpCreateDelayMeasurementSession>("probe_id: 4 session_id: 1"), "there is no probe 4");
}

TEST_F(ACache, RefusesToUpdateOrDeleteWhatDoesNotExist) {
  Tree();
  Changed<pb::OpCreateDelayMeasurementProbe>("probe_id: 1");
  const auto expect = [](const Refusal& refusal, const std::string& text) {
    EXPECT_EQ(refusal.reason, Reason::kNoObject);
    EXPECT_EQ(refusal.text, "there is no " + text);
  };
  expect(Refused<pb::OpUpdateMaintenanceDomain>("name: 'x'"), "domain 'x'");
  expect(Refused<pb::OpDeleteMaintenanceDomain>("name: 'x'"), "domain 'x'");
  expect(Refused<pb::OpUpdateMaintenanceAssociation>("md_name: 'x' ma_name: 'a'"), "association 'x'/'a'");
  expect(Refused<pb::OpUpdateMaintenanceAssociation>("md_name: 'd' ma_name: 'x'"), "association 'd'/'x'");
  expect(Refused<pb::OpDeleteMaintenanceAssociation>("md_name: 'x' ma_name: 'a'"), "association 'x'/'a'");
  expect(Refused<pb::OpDeleteMaintenanceAssociation>("md_name: 'd' ma_name: 'x'"), "association 'd'/'x'");
  expect(Refused<pb::OpUpdateMaintenanceEndpoint>(EndpointText("d", "a", 2)), "end point 'd'/'a'/2");
  expect(Refused<pb::OpUpdateMaintenanceEndpoint>(EndpointText("x", "a", 1)), "end point 'x'/'a'/1");
  expect(Refused<pb::OpDeleteMaintenanceEndpoint>(EndpointText("d", "a", 2)), "end point 'd'/'a'/2");
  expect(Refused<pb::OpDeleteMaintenanceEndpoint>(EndpointText("d", "x", 1)), "end point 'd'/'x'/1");
  expect(Refused<pb::OpDeleteDelayMeasurementProbe>("probe_id: 2"), "probe 2");
  expect(Refused<pb::OpDeleteDelayMeasurementSession>("probe_id: 1 session_id: 1"), "session 1/1");
  expect(Refused<pb::OpDeleteDelayMeasurementSession>("probe_id: 2 session_id: 1"), "session 2/1");
}

TEST_F(ACache, ShowsHostileNamesPrintableInItsRefusals) {
  EXPECT_EQ(Refused<pb::OpDeleteMaintenanceDomain>("name: '\\033[2J\\n'").text, "there is no domain '\\x1b[2J\\x0a'");
}

// ---- Lookup and size ----

TEST_F(ACache, FindsEndPointsByTheirNames) {
  Tree();
  ASSERT_NE(cache_.FindEndpoint("d", "a", 1), nullptr);
  EXPECT_EQ(cache_.FindEndpoint("d", "a", 1)->mep_id(), 1U);
  EXPECT_EQ(cache_.FindEndpoint("d", "a", 2), nullptr);
  EXPECT_EQ(cache_.FindEndpoint("d", "x", 1), nullptr);
  EXPECT_EQ(cache_.FindEndpoint("x", "a", 1), nullptr);
}

#ifdef CFM_SANITIZED
// What would be quadratic takes its time without sanitizers, where the number is larger.
constexpr int kManyEndPoints = 10'000;
#else
constexpr int kManyEndPoints = 100'000;
#endif

class ALargeCache : public ACache, public testing::WithParamInterface<int> {};

TEST_P(ALargeCache, TakesManyEndPointsAndGivesThemBack) {
  const int associations = GetParam();
  const int each = kManyEndPoints / associations;
  Domain("d");
  pb::OpCreateMaintenanceEndpoint request;
  request.set_md_name("d");
  for (int a = 0; a < associations; ++a) {
    Association("d", std::to_string(a));
    request.set_ma_name(std::to_string(a));
    for (int id = each; id > 0; --id) {
      request.set_mep_id(static_cast<uint32_t>(id));
      ASSERT_EQ(std::get<Change>(cache_.Apply(request)).effect, Effect::kCreated);
    }
  }
  pb::OpUpdateMaintenanceEndpoint update;
  update.set_md_name("d");
  for (int a = 0; a < associations; ++a) {
    update.set_ma_name(std::to_string(a));
    for (int id = 1; id <= each; ++id) {
      update.set_mep_id(static_cast<uint32_t>(id));
      update.set_action(static_cast<uint32_t>(id % 2));
      ASSERT_EQ(std::get<Change>(cache_.Apply(update)).effect, Effect::kUpdated);
    }
  }
  EXPECT_EQ(cache_.Snapshot().endpoints_size(), associations * each);
  const Change change = Changed<pb::OpDeleteMaintenanceDomain>("name: 'd'");
  EXPECT_EQ(change.removed.size(), static_cast<size_t>(associations * each + associations + 1));
  EXPECT_EQ(Text(), "");
}

INSTANTIATE_TEST_SUITE_P(InAssociations, ALargeCache, testing::Values(2, 1000, kManyEndPoints),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace cfm::contract
