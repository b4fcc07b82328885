// The platform's own libraries against real files, pipes and processes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <cstring>
#include <vector>

#include "../real_platform.h"
#include "base64.h"
#include "dp_client.h"
#include "evt_timer.h"
#include "kvdb.h"
#include "lx_logging.h"
#include "shell.h"
#include "watchdog.h"

namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

void Log(int level, std::string_view text) { lxlogging::CLxLogStream(level, "test/source", 17, 0) << text; }

int InitLogging(std::vector<std::string> arguments) {
  std::vector<char*> argv = {const_cast<char*>("test")};
  for (std::string& argument : arguments) argv.push_back(argument.data());
  return InitLxLogging(static_cast<int>(argv.size()), argv.data());
}

TEST(Logging, KeepsARecordOneLineOfUtf8) {
  const struct {
    const char* name;
    std::string text, written;
  } kRows[] = {
      {"plain", "state 3, \\n stays \\", "state 3, \\n stays \\"},
      {"line ends", "a\nb\r\tc", "a\\nb\\x0D\\tc"},
      {"controls", "\x1B[2J\x7F\0."s, "\\x1B[2J\\x7F\\x00."},
      {"utf-8", "无 é 🚗 \uFFFD", "无 é 🚗 \uFFFD"},
      {"other encoding", "_\xCE\xDE_", "_\\xCE\\xDE_"},
      {"cut short", "ok \xE6\x97", "ok \\xE6\\x97"},
      {"overlong", "\xC0\xAF \xE0\x80\xAF", "\\xC0\\xAF \\xE0\\x80\\xAF"},
      {"surrogate and beyond", "\xED\xA0\x80 \xF4\x90\x80\x80", "\\xED\\xA0\\x80 \\xF4\\x90\\x80\\x80"},
      {"terminal control in utf-8", "\xC2\x9B[", "\\xC2\\x9B["},
      {"longer than a pipe's page", std::string(9000, 'x'), std::string(9000, 'x')},
  };
  for (const auto& row : kRows) {
    const CapturedErrors errors;
    Log(3, row.text);
    const std::string record = errors.Read();
    ASSERT_TRUE(
        Matches(record, "2[0-9][0-9][0-9]-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9].[0-9][0-9][0-9] *"))
        << record;
    EXPECT_EQ(record.substr(24), "3 test/source:17 " + row.written + "\n") << row.name;
  }
}

TEST(Logging, RotatesItsFileAndFallsBackToStandardError) {
  const TemporaryDirectory directory;
  const CapturedErrors errors;
  const fs::path file = directory.path / "server.log";
  ASSERT_EQ(InitLogging({"--strange", "-v", "2", "-f", file}), 1);
  EXPECT_NE(errors.Read().find("--strange"), std::string::npos);
  for (int i = 0; i < 5000; ++i) Log(2, std::string(1000, 'r'));
  EXPECT_EQ(errors.Read(), "");
  ExitLxLogging();
  EXPECT_EQ(InitLogging({"-v", "1x"}), 1);
  EXPECT_NE(errors.Read().find("1x"), std::string::npos) << "no level, and said";
  Log(1, "not shown");
  Log(2, "after the end");
  EXPECT_TRUE(Matches(errors.Read(), "* 2 test/source:17 after the end\n"));

  EXPECT_EQ(std::distance(fs::directory_iterator(directory.path), fs::directory_iterator()), 3);
  for (const auto& entry : fs::directory_iterator(directory.path)) EXPECT_LE(entry.file_size(), 1024u * 1024) << entry;
  EXPECT_EQ(InitLogging({"-v", "1", "-f", file / "beneath a file.log"}), -1);
  Log(1, "no file");
  EXPECT_NE(errors.Read().find("no file"), std::string::npos);
}

class UnreadErrors : public testing::TestWithParam<bool (*)(int (&)[2])> {};

TEST_P(UnreadErrors, AreSurvived) {
  const CapturedErrors errors(GetParam());
  const auto start = Clock::now();
  for (int i = 0; i < 1000; ++i) Log(3, std::string(1000, 'b'));
  EXPECT_LT(SecondsSince(start), 2);
  errors.Read();
  Log(3, "read again");
  const std::string tail = errors.Read();
  EXPECT_NE(tail.find("records were lost"), std::string::npos) << tail;
  EXPECT_NE(tail.find("read again"), std::string::npos) << tail;
  close(STDERR_FILENO);
  Log(3, "nowhere to go");
  dup2(STDOUT_FILENO, STDERR_FILENO);
  Log(3, "written after another loss");
}

INSTANTIATE_TEST_SUITE_P(Logging, UnreadErrors, testing::Values(OpenPipe, OpenSocket),
                         [](const auto& each) { return each.index == 0 ? "Pipe" : "Socket"; });

TEST(Watchdog, SpeaksTheSupervisorsWords) {
  const TemporaryDirectory directory;
  sockaddr_un address = {AF_UNIX, {}};
  strcpy(address.sun_path, (directory.path / "notify").c_str());
  const int supervisor = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  ASSERT_EQ(bind(supervisor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  unsetenv("NOTIFY_SOCKET");
  EXPECT_EQ(RegisterWatchDogKey("bus", 3, 20), 0u) << "nobody listens";
  setenv("NOTIFY_SOCKET", address.sun_path, 1);
  const uint32_t key = RegisterWatchDogKey("bus", 3, 20);
  FeedDog(0);
  FeedDog(key);
  unsetenv("NOTIFY_SOCKET");
  std::string heard;
  char word[64];
  for (ssize_t size; (size = recv(supervisor, word, sizeof word, 0)) > 0;) heard += std::string(word, size) + " ";
  EXPECT_EQ(heard, "READY=1 WATCHDOG=1 ");
  close(supervisor);
}

TEST(Base64, RefusesWhatIsNotCanonical) {
  const struct {
    std::string text, data;
    int size;  // -1 for text that is refused
  } kRows[] = {{"", "", 0},
               {"AA==", "\0"s, 1},
               {"AP8=", "\0\xFF"s, 2},
               {"+/+/", "\xFB\xFF\xBF", 3},
               {"Zm9vYg==", "foob", 4},
               {"Zm9vYg", "", -1},
               {"Zm9vYg=", "", -1},
               {"Zm9vYg===", "", -1},
               {"Zm9vYh==", "", -1},
               {"Zm9v\nYg==", "", -1},
               {"-_-_", "", -1},
               {"Xb\x8E\x8E", "", -1},
               {"Zm9vYg==Zm9v", "", -1}};
  for (const auto& row : kRows) {
    int size = -2;
    EXPECT_EQ(lxbase::Base64::DecodeFromArray(row.text.data(), row.text.size(), 21, &size), row.data) << row.text;
    EXPECT_EQ(size, row.size) << row.text;
    if (row.size >= 0) {
      EXPECT_EQ(lxbase::Base64::EncodeFromArray(row.data.data(), row.data.size()), row.text);
    }
  }
}

// While the store reads its file it refuses everything: the default that stands in for a document that could not be
// read must not be written over it a moment later.
TEST(Store, TakesNoWritesRightAfterItWasNotReady) {
  const auto [listener, port] = LoopbackSocket();
  ASSERT_EQ(listen(listener, 1), 0);
  const pid_t server = fork();
  if (server == 0) {
    const int peer = accept(listener, nullptr, nullptr);
    char command[256];
    for (const char* answer : {"+PONG\r\n", "-LOADING the dataset\r\n", ":1\r\n"}) {
      if (read(peer, command, sizeof command) <= 0 || write(peer, answer, strlen(answer)) < 0) break;
    }
    _exit(0);
  }
  close(listener);
  ASSERT_EQ(Kvdb_Start("127.0.0.1", port), 1);
  const auto ignore = [](const char*, int, const char*, int, void*) {};
  EXPECT_EQ(Kvdb_GetKey("key", 3, ignore, nullptr), -1);
  EXPECT_EQ(Kvdb_SetKey("key", 3, "default", 7), -1);
  Kvdb_Stop();
  waitpid(server, nullptr, 0);
}

// The server stops the bus client before it destroys its timers.
TEST(Loop, TimersOutliveTheBusClientAndAnAbsentBrokerIsReportedEverySecond) {
  std::vector<Clock::time_point> reports;
  const auto on_status = [](DpPollHandle* handle, unsigned status, void* user) {
    EXPECT_EQ(status, kDpStatusDisconnected);
    EXPECT_EQ(DpClient_HdlReConnect(handle), -1);
    static_cast<std::vector<Clock::time_point>*>(user)->push_back(Clock::now());
  };
  int fired[2] = {};
  const auto count = [](int, short, const void* user) { return ++*static_cast<int*>(const_cast<void*>(user)); };
  lxconn::EVT_TIMER repeating, once;
  EXPECT_EQ(once.Start(1, 0), -1);
  DpClient_Init("127.0.0.1", FreePort());
  ASSERT_EQ(DpClient_Start(0), 1);
  DpPollHandle* const handle = DpClient_CreatePollHandle(nullptr, &reports, on_status, 0, 0);
  lxconn::EVT_LOOP* const loop = DpClient_GetEvtLoopFromPoll(handle);
  ASSERT_EQ(repeating.Init(loop, count, &fired[0]), 0);
  ASSERT_EQ(once.Init(loop, count, &fired[1]), 0);
  repeating.Start(0, 100);
  once.Start(20, 0);
  const auto start = Clock::now();
  while (SecondsSince(start) < 2.5) DpClient_PollDpMessage(handle, 10);
  EXPECT_EQ(DpClient_SendDpMessage("EVENT", 0, "x", 1), -1);
  ASSERT_EQ(reports.size(), 3u);
  EXPECT_LT(std::chrono::duration<double>(reports[0] - start).count(), 0.1);
  EXPECT_NEAR(std::chrono::duration<double>(reports[2] - reports[0]).count(), 2, 0.2);
  EXPECT_NEAR(fired[0], 26, 2);
  EXPECT_EQ(fired[1], 1);
  EXPECT_EQ(DpClient_Stop(), 1);
  EXPECT_EQ(once.Start(0, 0), 0);
}

TEST(Shell, StartsProgramsWithTheSignalsTheyExpect) {
  signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(WEXITSTATUS(RunShellCommand("sh -c 'kill -PIPE $$'; exit $?")), 128 + SIGPIPE);
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(WEXITSTATUS(RunShellCommand("exit 7")), 7);
  signal(SIGCHLD, SIG_DFL);
}

}  // namespace
