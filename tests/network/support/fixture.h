// The two small networks that most tests run on.
#ifndef CFM_TESTS_NETWORK_SUPPORT_FIXTURE_H
#define CFM_TESTS_NETWORK_SUPPORT_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "ccm_source.h"
#include "element.h"
#include "link.h"
#include "namespace.h"
#include "wire.h"

namespace cfm_test {

/// One element with one port, "port". The test is at the other end of the cable.
class OneElement : public testing::Test {
 protected:
  OneElement() { element_.StartServer(); }

  /// Hands the configuration over and waits until the server has it.
  void Run(const std::vector<EndPoint>& end_points) {
    element_.Configure(end_points);
    ASSERT_TRUE(element_.Settle()) << element_.server().Errors();
  }
  void Run() { Run({mep_}); }
  /// The same, with a remote MEP 2 that is there and is seen.
  void RunWithPeer() {
    Run();
    peer_.emplace(wire_, mep_, 2);
    ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk)) << element_.server().Errors();
  }

  /// Waits for the answers to what the client library asks of a server that it has found, and forgets all events.
  void ForgetTheBeginning() {
    element_.Listen(std::chrono::milliseconds(500));
    element_.events().Clear();
  }

  /// Waits until the server has dealt with all frames that were sent to it: it has answered a last one. What it sent
  /// meanwhile, beside that answer, is returned.
  std::vector<Frame> Drain() { return cfm_test::Drain(wire_, mep_, port_.address()); }

  Element element_;
  Namespace far_;
  std::pair<Link, Link> cable_ = Connect(element_.network(), "port", far_, "far");
  Link& port_ = cable_.first;
  Wire wire_{cable_.second};
  EndPoint mep_{.port = port_.index()};
  std::optional<CcmSource> peer_;
};

/// Two elements and a bridge between them. MEP 1 is on the near one, MEP 2 on the far one.
class TwoElements : public testing::Test {
 protected:
  TwoElements() {
    near_cable_.second.Join(bridge_);
    far_cable_.second.Join(bridge_);
    near_.StartServer();
    far_.StartServer();
  }

  void Run(const std::vector<EndPoint>& near, const std::vector<EndPoint>& far) {
    near_.Configure(near);
    far_.Configure(far);
    ASSERT_TRUE(near_.Settle()) << near_.server().Errors();
    ASSERT_TRUE(far_.Settle()) << far_.server().Errors();
  }
  /// With an end point at each end, that see each other.
  void Run() {
    Run({near_mep_}, {far_mep_});
    AwaitBoth();
  }
  void AwaitBoth() {
    ASSERT_TRUE(near_.WaitForRemote(near_mep_.remote(2), kRemoteOk)) << near_.server().Errors();
    ASSERT_TRUE(far_.WaitForRemote(far_mep_.remote(1), kRemoteOk)) << far_.server().Errors();
  }

  Element near_;
  Element far_;
  Namespace middle_;
  Link bridge_ = MakeBridge(middle_, "bridge");
  std::pair<Link, Link> near_cable_ = Connect(near_.network(), "port", middle_, "near");
  std::pair<Link, Link> far_cable_ = Connect(far_.network(), "port", middle_, "far");
  EndPoint near_mep_{.port = near_cable_.first.index(), .mep_id = 1};
  EndPoint far_mep_{.port = far_cable_.first.index(), .mep_id = 2};
};

}  // namespace cfm_test

#endif
