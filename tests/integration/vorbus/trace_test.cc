// Logging as a user sets it up, and what a process says when it fails.
#include <fstream>

#include "fixture.h"

namespace vorbus_test {
namespace {

using cfm_test::End;
using cfm_test::Process;

class Logging : public BusTest {
 protected:
  std::string Errors(const std::string& what, const Process::Environment& environment = {{"VORBUS_LOG_CONF", ""}}) {
    Process program({VORBUS_LOG_PROGRAM, what, directory()}, environment);
    EXPECT_EQ(program.Wait(), (End{.status = 0}));
    return program.Errors();
  }
};

int LinesWith(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST_F(Logging, ShowsWarningsAndAboveByDefault) {
  const std::string errors = Errors("log");
  EXPECT_EQ(LinesWith(errors, "of level"), 2) << errors;
  EXPECT_EQ(LinesWith(errors, "of level 80"), 1) << errors;
  EXPECT_EQ(LinesWith(errors, "of level 100"), 1) << errors;
  EXPECT_EQ(LinesWith(errors, "WARN test"), 1) << errors;
}

// The configuration that docs/vorbus.md shows.
TEST_F(Logging, ShowsTheLevelsBelowDebugWhenTheFileNamesThem) {
  std::ofstream(PathOf("log.conf")) << "[levels]\n"
                                       "TRACE = 10\n"
                                       "DUMP = 11\n"
                                       "[formats]\n"
                                       "line = \"%d(%T) %V %c %U: %m%n\"\n"
                                       "[rules]\n"
                                       "test.TRACE >stderr; line\n";
  const std::string errors = Errors("log", {{"VORBUS_LOG_CONF", PathOf("log.conf")}});
  EXPECT_EQ(LinesWith(errors, "TRACE test function: of level 10\n"), 1) << errors;
  EXPECT_EQ(LinesWith(errors, "DUMP test function: of level 11\n"), 1) << errors;
  EXPECT_EQ(LinesWith(errors, "of level"), 6) << errors;
}

TEST_F(Logging, FailsWithAFileThatIsNotThere) {
  Process program({VORBUS_LOG_PROGRAM, "log", directory()}, {{"VORBUS_LOG_CONF", PathOf("absent.conf")}});
  EXPECT_EQ(program.Wait(), (End{.status = 1}));
}

TEST_F(Logging, OfAFaultIsOneLine) {
  EXPECT_EQ(Errors("fault"),
            "fault: severity 1 in function at file:42: no such thing\n"
            "fault: severity 2 in ? at ?:0: \n"
            "fault: severity 3 in function at file:43: " +
                std::string(256, 'x') + "\n");
}

TEST_F(Logging, OfABacktraceNamesTheProgram) {
  const std::string errors = Errors("backtrace");
  EXPECT_GE(LinesWith(errors, "\n"), 2) << errors;
  EXPECT_NE(errors.find("vorbus-log-program"), std::string::npos) << errors;
}

}  // namespace
}  // namespace vorbus_test
