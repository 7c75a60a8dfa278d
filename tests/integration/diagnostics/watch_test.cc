#include <gmock/gmock.h>

#include <csignal>

#include "element.h"
#include "terminal.h"

namespace cfm_test::watch {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kLocal =
    R"(event STATUS_LOCAL_MEP md_name: "operator" ma_name: "evc" local_mep_id: 1 mac: "\002\000\000\000\000\001")";
constexpr const char* kRemote =
    R"(event STATUS_REMOTE_MEP md_name: "operator" ma_name: "evc" local_mep_id: 1 mac: "\002\000\000\000\000\002" )";

class Watch : public Element {
 protected:
  static std::string Remote(int id, int state) {
    return kRemote + ("remote_mep_id: " + std::to_string(id) + " fsm_state: " + std::to_string(state));
  }
  void Say(const std::string& statement) { ASSERT_TRUE(server_->WriteLine(statement)); }
  static std::string Line(Process& process) { return WithoutTimes(process.ReadLine().value_or("no line")); }
};

TEST_F(Watch, PrintsALineForEachChange) {
  Play("on STATUS_GET_ALL " + std::string(kLocal) + "\n");
  Process watch = Start({"watch"});
  EXPECT_EQ(Line(watch), "TIME server found");
  EXPECT_EQ(Line(watch), "TIME operator/evc MEP 1: ok  02:00:00:00:00:01");
  Say(Remote(2, 4));
  EXPECT_EQ(Line(watch), "TIME operator/evc MEP 1, remote MEP 2: ok  02:00:00:00:00:02");
  Say(Remote(2, 4));
  Say(Remote(2, 3));
  EXPECT_EQ(Line(watch), "TIME operator/evc MEP 1, remote MEP 2: failed  02:00:00:00:00:02") << "no change, no line";
  Say(R"(event REMOVED_REMOTE_MEP md_name: "operator" ma_name: "evc" local_mep_id: 1 remote_mep_id: 2)");
  EXPECT_EQ(Line(watch), "TIME operator/evc MEP 1, remote MEP 2: not reported by the server");
  Say(R"(event REMOVED_LOCAL_MEP md_name: "operator" ma_name: "evc" local_mep_id: 1)");
  EXPECT_EQ(Line(watch), "TIME operator/evc MEP 1: not reported by the server");
  watch.Signal(SIGINT);
  const Result result = Finish(std::move(watch));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.errors, "");
}

TEST_F(Watch, PrintsAnObjectForEachChange) {
  Play("on STATUS_GET_ALL " + std::string(kLocal) + "\n");
  Process watch = Start({"watch", "--json"});
  EXPECT_EQ(Line(watch), R"({"event":"server-found","time":"TIME"})");
  EXPECT_EQ(Line(watch),
            R"({"event":"local-mep","time":"TIME","domain":"operator","association":"evc","mep-id":1,"enabled":true,)"
            R"("reported":true,"problems":[],"mac":"02:00:00:00:00:01","sends-rdi":false,"interface-status":"none",)"
            R"("port-status":"none","blocked-by-fault-action":false,"shut-down-by-fault-action":false,)"
            R"("highest-defect":"none","defects":{"rdi":false,"mac-status":false,"remote-ccm":false,)"
            R"("error-ccm":false,"xcon-ccm":false,"ais":false}})");
  Say(Remote(9, 4));
  EXPECT_EQ(Line(watch),
            R"({"event":"remote-mep","time":"TIME","domain":"operator","association":"evc","mep-id":1,)"
            R"("remote-mep-id":9,"expected":false,"reported":true,"problems":[],"mac":"02:00:00:00:00:02",)"
            R"("state":"ok","rdi":false,"interface-status":"none","port-status":"none","sender-id":"",)"
            R"("last-change-uptime":0})");
  Say(R"(event REMOVED_REMOTE_MEP md_name: "operator" ma_name: "evc" local_mep_id: 1 remote_mep_id: 9)");
  EXPECT_EQ(Line(watch),
            R"({"event":"remote-mep","time":"TIME","domain":"operator","association":"evc","mep-id":1,)"
            R"("remote-mep-id":9,"expected":false,"reported":false,"problems":["not reported by the server"]})");
  server_->Kill();
  EXPECT_EQ(Line(watch), R"({"event":"server-lost","time":"TIME"})");
  watch.Signal(SIGTERM);
  EXPECT_EQ(Finish(std::move(watch)).status, 0);
}

TEST_F(Watch, ForgetsWhatALostServerSaid) {
  const std::string script = "on STATUS_GET_ALL " + std::string(kLocal) + "\n";
  Play(script);
  Process watch = Start({"watch"});
  EXPECT_EQ(Line(watch), "TIME server found");
  EXPECT_EQ(Line(watch), "TIME operator/evc MEP 1: ok  02:00:00:00:00:01");
  server_->Kill();
  EXPECT_EQ(Line(watch), "TIME server lost");
  Play(script);
  EXPECT_EQ(Line(watch), "TIME server found");
  EXPECT_EQ(Line(watch), "TIME operator/evc MEP 1: ok  02:00:00:00:00:01") << "new, though it is the same again";
}

TEST_F(Watch, RedrawsATerminalInPlace) {
  Play("on STATUS_GET_ALL " + std::string(kLocal) + "\n");
  Terminal terminal(Command({"watch"}), Environment());
  const std::string first = WithoutTimes(terminal.ReadUntil("1 of 1 ok; remote MEPs: 0 of 2 ok"));
  EXPECT_THAT(first, HasSubstr("\x1b[2J\x1b[?7l\x1b[HTIME"));
  EXPECT_THAT(first, HasSubstr("operator/evc MEP 1: ok  02:00:00:00:00:01\x1b[K\r\n"
                               "  remote MEP 2: not reported by the server\x1b[K\r\n"
                               "  remote MEP 3: not reported by the server\x1b[K\r\n"));
  Say(Remote(2, 4));
  const std::string second = WithoutTimes(terminal.ReadUntil("1 of 2 ok\x1b[K\r\n\x1b[J\x1b[?7h"));
  EXPECT_THAT(second, HasSubstr("\x1b[?7l\x1b[HTIME\x1b[K\r\n"
                                "operator/evc MEP 1: ok  02:00:00:00:00:01\x1b[K\r\n"
                                "  remote MEP 2: ok  02:00:00:00:00:02\x1b[K\r\n"
                                "  remote MEP 3: not reported by the server\x1b[K\r\n"
                                "local MEPs: 1 of 1 ok; remote MEPs: "));
  EXPECT_THAT(second, Not(HasSubstr("\x1b[2J")));
  server_->Kill();
  EXPECT_THAT(WithoutTimes(terminal.ReadUntil("0 of 2 ok")), HasSubstr("TIME  no server\x1b[K\r\n"
                                                                       "operator/evc MEP 1: not reported"));
  terminal.Type("\x03");
  EXPECT_EQ(terminal.Finish().status, 0);
}

TEST_F(Watch, FitsASmallTerminal) {
  std::string meps = "1";
  for (int id = 2; id <= 20; ++id) meps += ", " + std::to_string(id);
  WriteConfiguration("domains: {operator: {level: 2, associations: {evc: {mep-ids: [" + meps +
                     "], end-points: {1: {port: lo}}}}}}\n");
  Play("on STATUS_GET_ALL " + std::string(kLocal) + "\n");
  Terminal terminal(Command({"watch"}), Environment(), 6);
  // A line for the cursor below the five.
  EXPECT_THAT(WithoutTimes(terminal.ReadUntil("1 of 1 ok; remote MEPs: 0 of 19 ok")),
              HasSubstr("TIME\x1b[K\r\n"
                        "operator/evc MEP 1: ok  02:00:00:00:00:01\x1b[K\r\n"
                        "  remote MEP 2: not reported by the server\x1b[K\r\n"
                        "... 18 lines more; 'cfmctl status' prints them all\x1b[K\r\n"
                        "local MEPs: 1 of 1 ok; remote MEPs: 0 of 19 ok"));
}

}  // namespace
}  // namespace cfm_test::watch
