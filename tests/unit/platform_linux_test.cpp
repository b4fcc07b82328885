// The platform's own libraries against real files, pipes and processes.
#include <gtest/gtest.h>
#include <mqtt_protocol.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "../../platform/linux/bus_messages.h"
#include "../../platform/linux/log_level.h"
#include "../../platform/linux/peer_owner.h"
#include "../moved_clock/moved_clock.h"
#include "../real_platform.h"
#include "base64.h"
#include "dp_client.h"
#include "evt_timer.h"
#include "kvdb.h"
#include "lx_logging.h"
#include "shell.h"
#include "shown_text.h"
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
  const std::tuple<const char*, std::string, std::string> kRows[] = {
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
      {"longer than any message", std::string(17000, 'x'), std::string(16384, 'x') + "... (17000 bytes)"},
      {"steering marks", "\u061C\u200E\u202E\u2066", "\\xD8\\x9C\\xE2\\x80\\x8E\\xE2\\x80\\xAE\\xE2\\x81\\xA6"},
  };
  for (const auto& [name, text, written] : kRows) {
    const CapturedErrors errors;
    Log(3, text);
    const std::string record = errors.Read();
    ASSERT_TRUE(
        Matches(record, "2[0-9][0-9][0-9]-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9].[0-9][0-9][0-9] *"))
        << record;
    EXPECT_EQ(record.substr(24), "3 test/source:17 " + written + "\n") << name;
  }
}

TEST(Logging, KnowsTheYearsAfter2038) {
  if (sizeof(time_t) < sizeof(int64_t)) GTEST_SKIP() << "time has 32 bits here";
  const CapturedErrors errors;
  MoveWallClock(kNoonIn2040 - time(nullptr));
  Log(3, "later");
  MoveWallClock(0);
  const std::string record = errors.Read();
  EXPECT_EQ(record.substr(0, 10), "2040-02-29") << record;
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

// A pipe that plays the journal: it names itself in the environment, as the supervisor does.
TEST(Logging, GivesTheJournalPrioritiesAndChangesItsLevelOnASignal) {
  const struct {
    const char* name;
    bool journal;
    int signal;           // before the records; 0 for none
    const char* records;  // what is written at a usual level of 2, as patterns; the first line says the new level
  } kRows[] = {
      {"usual", true, 0, "<6>* 2 *:17 two\n<3>* 3 *:17 three\n"},
      {"no journal", false, 0, "2*-* 2 *:17 two\n2* 3 *:17 three\n"},
      {"all", true, SIGUSR1, "<6>* 2 *level 1 and up*\n<7>* 1 *:17 one\n<6>* 2 *:17 two\n<3>* 3 *:17 three\n"},
      {"usual again", true, SIGUSR2, "<6>* 2 *level 2 and up*\n<6>* 2 *:17 two\n<3>* 3 *:17 three\n"},
  };
  platform::ListenToLevelSignals();
  for (const auto& row : kRows) {
    const CapturedErrors errors;
    struct stat file;
    ASSERT_EQ(fstat(STDERR_FILENO, &file), 0);
    const auto inode = file.st_ino + (row.journal ? 0 : 1);
    setenv("JOURNAL_STREAM", (std::to_string(file.st_dev) + ":" + std::to_string(inode)).c_str(), 1);
    InitLogging({"-v", "2"});
    if (row.signal != 0) raise(row.signal);
    platform::SayNewLevel();
    platform::SayNewLevel();
    Log(1, "one");
    Log(2, "two");
    Log(3, "three");
    const std::string written = errors.Read();
    EXPECT_TRUE(Matches(written, row.records)) << row.name << ":\n" << written;
    EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), row.signal == SIGUSR1 ? 4 : row.signal != 0 ? 3 : 2);
  }
  unsetenv("JOURNAL_STREAM");
  InitLogging({"-v", "1"});
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
  // A size of -1 stands for text that is refused.
  const std::tuple<std::string, std::string, int> kRows[] = {{"", "", 0},
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
  for (const auto& [text, data, length] : kRows) {
    int size = -2;
    EXPECT_EQ(lxbase::Base64::DecodeFromArray(text.data(), text.size(), 21, &size), data) << text;
    EXPECT_EQ(size, length) << text;
    if (length >= 0) {
      EXPECT_EQ(lxbase::Base64::EncodeFromArray(data.data(), data.size()), text);
    }
  }
}

TEST(ShownText, EscapesEveryMarkThatSteers) {
  for (uint32_t code = 0x80; code < 0x3000; ++code) {
    const char text[] = {static_cast<char>(code < 0x800 ? 0xC0 | code >> 6 : 0xE0 | code >> 12),
                         static_cast<char>(0x80 | (code < 0x800 ? code & 63 : code >> 6 & 63)),
                         static_cast<char>(0x80 | (code & 63)), 'x'};
    const size_t length = code < 0x800 ? 2 : 3;
    const bool steers = code < 0xA0 || code == 0x61C || code == 0x200E || code == 0x200F ||
                        (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
    ASSERT_EQ(ShownLength({text, length}), steers ? 0 : length) << std::hex << code;
    ASSERT_EQ(ShownLength({text, length - 1}), 0u) << "cut: " << std::hex << code;
  }
}

// The platform connected to a store that gives these answers, one to each command. Returns the store's process.
pid_t ConnectToStore(const std::vector<std::string>& answers) {
  const auto [listener, port] = LoopbackSocket();
  EXPECT_EQ(listen(listener, 1), 0);
  const pid_t store = fork();
  if (store == 0) {
    const int peer = accept(listener, nullptr, nullptr);
    char command[256];
    for (const std::string& answer : answers) {
      if (read(peer, command, sizeof command) <= 0 || write(peer, answer.data(), answer.size()) < 0) break;
    }
    read(peer, command, sizeof command);
    _exit(0);
  }
  close(listener);
  EXPECT_EQ(Kvdb_Start("127.0.0.1", port), 1);
  return store;
}

// What a look-up comes to by what the store says. Only 0 lets a default be written.
TEST(Store, TellsWhatIsMissingFromWhatWasNotAnswered) {
  const std::tuple<std::string, int, const char*> kRows[] = {
      {"$3\r\nabc\r\n", 1, "abc"},
      {"$-1\r\n", 0, ""},
      {"$1048577\r\nabc", 0, ""},  // longer than any document: the rest is not waited for
      {"$99999999999999999999\r\n", -1, ""},
      {"-WRONGTYPE no hash\r\n", -1, ""},
      {"*1\r\n$3\r\nabc\r\n", -1, ""},
      {":1\r\n", -1, ""},
      {"+OK\r\n", -1, ""},
      {"$3\r\nab", -1, ""},
  };
  for (const auto& [answer, result, expected] : kRows) {
    const pid_t store = ConnectToStore({"+PONG\r\n", answer});
    const CapturedErrors errors;
    std::string value;
    const auto take = [](const char*, int, const char* text, int size, void* user) {
      static_cast<std::string*>(user)->assign(text, static_cast<size_t>(size));
    };
    EXPECT_EQ(Kvdb_GetKey("key", 3, take, &value), result) << answer;
    EXPECT_EQ(value, expected) << answer;
    Kvdb_Stop();
    waitpid(store, nullptr, 0);
  }
}

// While the store reads its file it refuses everything: the default that stands in for a document that could not be
// read must not be written over it a moment later.
TEST(Store, TakesNoWritesRightAfterItWasNotReady) {
  const pid_t store = ConnectToStore({"+PONG\r\n", "-LOADING the dataset\r\n", ":1\r\n"});
  const auto ignore = [](const char*, int, const char*, int, void*) {};
  EXPECT_EQ(Kvdb_GetKey("key", 3, ignore, nullptr), -1);
  EXPECT_EQ(Kvdb_SetKey("key", 3, "default", 7), -1);
  Kvdb_Stop();
  waitpid(store, nullptr, 0);
}

// A server of another user's: the connection is its owner's as soon as it has taken it, and not before.
TEST(PeerOwner, IsWhoeverTookTheConnection) {
  constexpr uid_t kOther = 61234;
  const uid_t owner = geteuid() == 0 ? kOther : geteuid();
  const auto [listener, port] = LoopbackSocket();
  ASSERT_EQ(listen(listener, 1), 0);
  const int client = socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_FALSE(platform::PeerOwner(client));
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  ASSERT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(platform::AwaitPeer(client, owner, 20), platform::Peer::kUnknownYet);
  const pid_t server = fork();
  if (server == 0) {
    close(client);
    if (owner == kOther && setuid(kOther) != 0) _exit(1);
    const int peer = accept(listener, nullptr, nullptr);
    char byte;
    read(peer, &byte, 1);
    _exit(0);
  }
  EXPECT_EQ(platform::AwaitPeer(client, owner, 5000), platform::Peer::kTrusted);
  // Where this test is not root's, the server is this process's own user's.
  EXPECT_EQ(platform::CheckPeer(client, owner + 1),
            owner == kOther ? platform::Peer::kStranger : platform::Peer::kTrusted);
  EXPECT_EQ(platform::PeerOwner(client), owner);
  close(client);
  close(listener);
  waitpid(server, nullptr, 0);
}

TEST(ReplyAddress, IsBelowReplyOrTheTypesOwn) {
  // Null stands for no response topic, and for no answer.
  const std::pair<const char*, const char*> kRows[] = {
      {nullptr, "TYPE/reply"},      {"", "TYPE/reply"},       {"reply/me", "reply/me"},
      {"TYPE/reply", "TYPE/reply"}, {"reply/", nullptr},      {"reply", nullptr},
      {"replyx/me", nullptr},       {"OTHER/reply", nullptr}, {"BUS_BROADCAST_MESSAGE", nullptr},
  };
  char type[] = "TYPE";
  const mosquitto_message message = {0, type, nullptr, 0, 0, false};
  for (const auto& [asked, topic] : kRows) {
    mosquitto_property* properties = nullptr;
    if (asked != nullptr) mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC, asked);
    const std::string correlation(300, 'c');
    mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, correlation.data(), 300);
    const auto address = platform::ReplyAddressOf(message, properties);
    mosquitto_property_free_all(&properties);
    const char* const said = asked != nullptr ? asked : "nothing";
    ASSERT_EQ(address.has_value(), topic != nullptr) << said;
    if (!address) continue;
    EXPECT_EQ(address->topic, topic) << said;
    if (address->topic == said) {
      EXPECT_EQ(address->correlation, correlation) << said;
    }
  }
}

// The bus client, its broker at this port.
DpPollHandle* StartBusClient(uint16_t port, DpStatusCallback on_status, void* user) {
  DpClient_Init("127.0.0.1", port);
  EXPECT_EQ(DpClient_Start(0), 1);
  return DpClient_CreatePollHandle(nullptr, user, on_status, 0, 0);
}

using Report = std::pair<Clock::time_point, int>;  // that there is no bus, and what connecting again came to

void NoteReport(DpPollHandle* handle, unsigned status, void* reports) {
  EXPECT_EQ(status, kDpStatusDisconnected);
  static_cast<std::vector<Report>*>(reports)->emplace_back(Clock::now(), DpClient_HdlReConnect(handle));
}

// A port that takes connections and says nothing is no broker: as if nobody were there, only that the connection that
// is being made is not made anew each time.
TEST(Loop, ABrokerThatDoesNotAnswerIsReportedEverySecond) {
  const auto [listener, port] = LoopbackSocket();
  ASSERT_EQ(listen(listener, 8), 0);
  std::vector<Report> reports;
  const CapturedErrors errors;
  DpPollHandle* const handle = StartBusClient(port, NoteReport, &reports);
  lxconn::EVT_TIMER awake;
  awake.Init(
      DpClient_GetEvtLoopFromPoll(handle), [](int, short, const void*) { return 0; }, nullptr);
  awake.Start(0, 50);
  const auto start = Clock::now();
  while (SecondsSince(start) < 6.5) DpClient_PollDpMessage(handle, 10);
  DpClient_Stop();
  close(listener);
  ASSERT_EQ(reports.size(), 6u);
  for (size_t i = 0; i < reports.size(); ++i) {
    EXPECT_NEAR(std::chrono::duration<double>(reports[i].first - start).count(), static_cast<double>(i) + 1, 0.3);
    EXPECT_EQ(reports[i].second, i == 4 ? 1 : -1) << "after five seconds another connection, at report " << i;
  }
}

// Asked to end, the process says its last words and ends by that signal; one that hangs ends all the same.
TEST(Loop, EndsByTheSignalAfterItsLastWords) {
  for (const bool hangs : {false, true}) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t process = fork();
    if (process == 0) {
      const auto on_status = [](DpPollHandle*, unsigned status, void* user) {
        if (status == kDpStatusEnding) write(*static_cast<int*>(user), "end", 3);
      };
      DpPollHandle* const handle = StartBusClient(FreePort(), on_status, &ends[1]);
      write(ends[1], "up", 2);
      if (hangs) SleepMicroseconds(20000000);
      for (;;) DpClient_PollDpMessage(handle, 10);
    }
    close(ends[1]);
    char text[8] = {};
    ASSERT_EQ(read(ends[0], text, 2), 2);
    kill(process, SIGTERM);
    int status = 0;
    const auto start = Clock::now();
    waitpid(process, &status, 0);
    EXPECT_LT(SecondsSince(start), 10);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    EXPECT_EQ(read(ends[0], text, sizeof text), hangs ? 0 : 3);
    close(ends[0]);
  }
}

TEST(Loop, SurvivesWhateverATimerThrows) {
  DpPollHandle* const handle = StartBusClient(FreePort(), nullptr, nullptr);
  const CapturedErrors errors;
  lxconn::EVT_TIMER timer;
  timer.Init(
      DpClient_GetEvtLoopFromPoll(handle), [](int, short, const void*) -> int { throw 7; }, nullptr);
  timer.Start(0, 0);
  while (DpClient_PollDpMessage(handle, 10) == 1 && errors.Read().find("no exception") == std::string::npos) {
  }
  DpClient_Stop();
}

// The server stops the bus client before it destroys its timers.
TEST(Loop, TimersOutliveTheBusClientAndAnAbsentBrokerIsReportedEverySecond) {
  std::vector<Report> reports;
  int fired[2] = {};
  const auto count = [](int, short, const void* user) { return ++*static_cast<int*>(const_cast<void*>(user)); };
  lxconn::EVT_TIMER repeating, once;
  EXPECT_EQ(once.Start(1, 0), -1);
  DpPollHandle* const handle = StartBusClient(FreePort(), NoteReport, &reports);
  lxconn::EVT_LOOP* const loop = DpClient_GetEvtLoopFromPoll(handle);
  ASSERT_EQ(repeating.Init(loop, count, &fired[0]), 0);
  ASSERT_EQ(once.Init(loop, count, &fired[1]), 0);
  repeating.Start(0, 100);
  once.Start(20, 0);
  const auto start = Clock::now();
  while (SecondsSince(start) < 2.5) DpClient_PollDpMessage(handle, 10);
  EXPECT_EQ(DpClient_SendDpMessage("EVENT", 0, "x", 1), -1);
  ASSERT_EQ(reports.size(), 3u);
  EXPECT_LT(std::chrono::duration<double>(reports[0].first - start).count(), 0.1);
  EXPECT_NEAR(std::chrono::duration<double>(reports[2].first - reports[0].first).count(), 2, 0.2);
  for (const Report& report : reports) EXPECT_EQ(report.second, -1);
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
