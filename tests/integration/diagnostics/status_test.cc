#include <gmock/gmock.h>

#include <csignal>

#include "element.h"
#include "terminal.h"

namespace cfm_test::status {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kLocal =
    R"(on STATUS_GET_ALL event STATUS_LOCAL_MEP md_name: "operator" ma_name: "evc" local_mep_id: 1 mac: )"
    R"("\002\000\000\000\000\001" intf_status: 1 port_state: 2 )";
constexpr const char* kRemote =
    R"(on STATUS_GET_ALL event STATUS_REMOTE_MEP md_name: "operator" ma_name: "evc" local_mep_id: 1 mac: )"
    R"("\002\000\000\000\000\002" )";

class Status : public Element {
 protected:
  static std::string Local(const std::string& more = "") { return kLocal + more + "\n"; }
  static std::string Remote(int id, const std::string& more = "fsm_state: 4") {
    return kRemote + ("remote_mep_id: " + std::to_string(id) + " ") + more + "\n";
  }
};

TEST_F(Status, OfAHealthyElementIsWell) {
  Play(Local() + Remote(2, "fsm_state: 4 sender_id: \"far end\" last_change_uptime: 12") + Remote(3));
  const Result result = Run({"status"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.out,
            "operator/evc MEP 1: ok  02:00:00:00:00:01\n"
            "  remote MEP 2: ok  02:00:00:00:00:02, far end\n"
            "  remote MEP 3: ok  02:00:00:00:00:02\n"
            "local MEPs: 1 of 1 ok; remote MEPs: 2 of 2 ok\n");
  EXPECT_THAT(result.errors, IsEmpty());
  EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(Status, PrintsOneDocument) {
  Play(Local("rdi: true highest_defect: 3 defect_remote_ccm: true") +
       Remote(2, "fsm_state: 3 rdi: true port_state: 1 intf_status: 2 sender_id: \"far\" last_change_uptime: 12"));
  const Result result = Run({"--timeout", "0.5", "status", "--json"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(
      result.out,
      R"({"well":false,"meps":[{"domain":"operator","association":"evc","mep-id":1,"enabled":true,"reported":true,)"
      R"("problems":["CCMs missing"],"mac":"02:00:00:00:00:01","sends-rdi":true,"interface-status":"up",)"
      R"("port-status":"up","blocked-by-fault-action":false,"shut-down-by-fault-action":false,)"
      R"("highest-defect":"remote-ccm","defects":{"rdi":false,"mac-status":false,"remote-ccm":true,"error-ccm":false,)"
      R"("xcon-ccm":false,"ais":false},"remote-meps":[{"remote-mep-id":2,"expected":true,"reported":true,)"
      R"("problems":["failed","sends remote defect indication","its interface down","its port blocked"],)"
      R"("mac":"02:00:00:00:00:02","state":"failed","rdi":true,"interface-status":"down","port-status":"blocked",)"
      R"("sender-id":"far","last-change-uptime":12},{"remote-mep-id":3,"expected":true,"reported":false,)"
      R"("problems":["not reported by the server"]}]}]})"
      "\n");
}

TEST_F(Status, NamesEveryDefect) {
  Play(Local("highest_defect: 5 defect_xcon_ccm: true defect_error_ccm: true defect_remote_ccm: true "
             "defect_mac_status: true defect_rdi: true defect_ais: true block_state: 1 shutdown_state: 1 rdi: true") +
       Remote(2, "fsm_state: 2") + Remote(3, "fsm_state: 9"));
  const Result result = Run({"status"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "operator/evc MEP 1: cross-connection, erroneous CCMs, CCMs missing, a remote port or interface is not up, "
            "remote defect indication received, alarm indication signal received, port blocked by the fault action, "
            "port shut down by the fault action  02:00:00:00:00:01, sends RDI\n"
            "  remote MEP 2: start  02:00:00:00:00:02\n"
            "  remote MEP 3: code 9  02:00:00:00:00:02\n"
            "local MEPs: 0 of 1 ok; remote MEPs: 0 of 2 ok\n");
}

TEST_F(Status, SaysWhatIsMissingAfterTheTimeout) {
  Play(Local() + Remote(3));
  const Result result = Run({"--timeout", "0.5", "status"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "operator/evc MEP 1: ok  02:00:00:00:00:01\n"
            "  remote MEP 2: not reported by the server\n"
            "  remote MEP 3: ok  02:00:00:00:00:02\n"
            "local MEPs: 1 of 1 ok; remote MEPs: 1 of 2 ok\n");
}

TEST_F(Status, ListsLearnedMepsAndPassesOverThoseOfOthers) {
  Play(Remote(9) +
       "on STATUS_GET_ALL event STATUS_LOCAL_MEP md_name: \"other\" ma_name: \"evc\" local_mep_id: 1 "
       "highest_defect: 5\n" +
       Local() + Remote(2) + Remote(3));
  const Result result = Run({"status"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "operator/evc MEP 1: ok  02:00:00:00:00:01\n"
            "  remote MEP 2: ok  02:00:00:00:00:02\n"
            "  remote MEP 3: ok  02:00:00:00:00:02\n"
            "  remote MEP 9: ok  02:00:00:00:00:02, learned\n"
            "local MEPs: 1 of 1 ok; remote MEPs: 3 of 3 ok\n");
}

TEST_F(Status, EscapesWhatCameFromTheNetwork) {
  const std::string hostile = R"(fsm_state: 4 sender_id: "\033[2Jo\\k\302\233")";
  Play(Local() + Remote(2, hostile) + Remote(3));
  EXPECT_THAT(Run({"status"}).out, HasSubstr(R"(remote MEP 2: ok  02:00:00:00:00:02, \x1b[2Jo\x5ck\xc2\x9b)"
                                             "\n"));
  EXPECT_THAT(Run({"status", "--json"}).out, HasSubstr(R"("sender-id":"\\x1b[2Jo\\x5ck\\xc2\\x9b")"));
}

TEST_F(Status, DoesNotCountADisabledEndPoint) {
  WriteConfiguration(
      "domains: {operator: {level: 2, associations: {evc: {mep-ids: [1, 2], end-points: {1: {port: lo, enabled: "
      "false}}}}}}\n");
  Play("");
  const Result result = Run({"status"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.out, "operator/evc MEP 1: disabled\nlocal MEPs: 0 of 0 ok; remote MEPs: 0 of 0 ok\n");
}

TEST_F(Status, OfAServerThatDiesPrintsWhatIsKnown) {
  Play(Local() + "on STATUS_GET_ALL exit 0\n");
  const Result result = Run({"status"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "operator/evc MEP 1: ok  02:00:00:00:00:01\n"
            "  remote MEP 2: not reported by the server\n"
            "  remote MEP 3: not reported by the server\n"
            "local MEPs: 1 of 1 ok; remote MEPs: 0 of 2 ok\n");
  EXPECT_EQ(result.errors, "cfmctl: the server went away in the middle of it\n");
}

TEST_F(Status, InterruptedPrintsWhatIsKnown) {
  Play("on STATUS_GET_ALL say asked\n");
  Process process = Start({"--timeout", "600", "status"});
  ASSERT_TRUE(server_->ReadUntil("say asked"));
  process.Signal(SIGINT);
  const Result result = Finish(std::move(process));
  EXPECT_EQ(result.status, 128 + SIGINT);
  EXPECT_THAT(result.errors, HasSubstr("cfmctl: ended by Interrupt\n"));
}

TEST_F(Status, OnATerminalHasColours) {
  Play(Local() + Remote(2) + Remote(3, "fsm_state: 3"));
  Process::Environment environment = Environment();
  environment["NO_COLOR"] = "";
  const Screen screen = RunOnTerminal(Command({"status"}), environment);
  EXPECT_EQ(screen.status, 1);
  EXPECT_EQ(screen.text,
            "\x1b[1moperator/evc MEP 1\x1b[0m: \x1b[32mok\x1b[0m\x1b[2m  02:00:00:00:00:01\x1b[0m\r\n"
            "  remote MEP 2: \x1b[32mok\x1b[0m\x1b[2m  02:00:00:00:00:02\x1b[0m\r\n"
            "  remote MEP 3: \x1b[31mfailed\x1b[0m\x1b[2m  02:00:00:00:00:02\x1b[0m\r\n"
            "local MEPs: 1 of 1 ok; remote MEPs: 1 of 2 ok\r\n");
}

}  // namespace
}  // namespace cfm_test::status
