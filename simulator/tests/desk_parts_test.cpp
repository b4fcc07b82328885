#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <fstream>

#include "bringup/process.h"
#include "desk/neighbours.h"
#include "desk/recogniser.h"
#include "desk/serial_line.h"
#include "near_end.h"
#include "protocol/json_text.h"

namespace desk {
namespace {

using businessserver::FieldText;
using Milliseconds = Loop::Milliseconds;

TEST(LoopTimers, FireInTheOrderOfTheirTimesAndNotOnceCancelled) {
  Loop loop;
  std::string fired;
  uint64_t cancelled = 0;
  loop.After(Milliseconds(30), [&] { fired += 'c'; });
  loop.After(Milliseconds(10), [&] {
    fired += 'a';
    loop.Cancel(cancelled);
  });
  cancelled = loop.After(Milliseconds(20), [&] { fired += 'x'; });
  const uint64_t every = loop.Every(Milliseconds(40), [&] { fired += 'e'; });
  EXPECT_TRUE(loop.RunUntil([&] { return fired.size() == 4; }, Milliseconds(2000)));
  loop.Cancel(every);
  EXPECT_EQ(fired, "acee");
}

TEST(RecogniserRecord, OnlyTheSpaceWithTheEventIsMarkedAsOne) {
  Recogniser recogniser;
  std::string problem;
  recogniser.Arrive(2, "京A12345");
  const auto& record = recogniser.record();
  EXPECT_EQ(FieldText(record.spaces[1].plate),
            "\xBE\xA9"
            "A12345");
  const int expected[3][4] = {{1, 0, 1, 0}, {1, 1, 0, 1}, {1, 0, 1, 0}};  // valid, second flag, trigger, status
  for (size_t i = 0; i < 3; ++i) {
    const auto& space = record.spaces[i];
    const int found[4] = {space.valid, space.second_flag, space.trigger, space.space_status};
    for (size_t k = 0; k < 4; ++k) EXPECT_EQ(found[k], expected[i][k]) << "space " << i + 1 << ", value " << k;
  }
  recogniser.Leave(2);
  EXPECT_EQ(FieldText(record.spaces[1].plate), businessserver::kNoPlate);
  EXPECT_EQ(record.spaces[1].plate[7], '\0') << "a rest of the old plate";
}

TEST(RecogniserRecord, TextsFillTheirFieldToTheLastByteAndNotBeyond) {
  Recogniser recogniser;
  std::string problem;
  EXPECT_TRUE(recogniser.SetField(1, "name", std::string(32, 'N'), problem));
  EXPECT_EQ(FieldText(recogniser.space(1).space_name).size(), 32u);
  EXPECT_EQ(recogniser.space(1).extra_text[0], '\0');
  EXPECT_FALSE(recogniser.SetField(1, "name", std::string(33, 'N'), problem));
  EXPECT_FALSE(recogniser.SetField(1, "trigger", "1x", problem));
  EXPECT_FALSE(recogniser.SetField(1, "hat", "1", problem));
}

TEST(NeighbourPush, IsTheDocumentThatDevicesSend) {
  Neighbour neighbour;
  neighbour.ip = 0x1401A8C0;
  neighbour.position = 1;
  neighbour.total = 3;
  neighbour.free = 2;
  Json::Value document;
  ASSERT_TRUE(businessserver::ParseJson(PushDocument(neighbour), document));
  EXPECT_EQ(CompactText(document), R"({"cm_dev":null,"free":2,"pos":1,"s_addr":335653056,"totle":3})");
  neighbour.reports.push_back({0x1E01A8C0, 2, 1});
  ASSERT_TRUE(businessserver::ParseJson(PushDocument(neighbour), document));
  EXPECT_EQ(CompactText(document["cm_dev"]), R"([{"fn":1,"ip":503425216,"tn":2}])");
}

TEST(ExternalLine, ABurstInPiecesIsReadWholeAndWhatFitsNothingIsShownAsBytes) {
  TemporaryDirectory directory;
  Loop loop;
  Pty line(loop);
  StoreClient store;  // nobody answers there: the default field list counts
  Journal journal;
  std::string problem;
  ASSERT_TRUE(line.Open(directory.path.string() + "/line", problem)) << problem;
  SerialLine serial(loop, line, store, journal);
  const NearEnd daemon(directory.path.string() + "/line");
  const std::string frame(
      "\xBB\x88\xAA\x00"
      "A12345\x01\x02\x00\x00\x00\x03\x00\x00\x00\x02"
      "P1\x33",
      23);
  daemon.Write(frame.substr(0, 10));
  loop.Turn(Milliseconds(1));
  daemon.Write(frame.substr(10) + std::string("\xAA\x04\x05\x01\xAA\x55", 6) + "???");
  loop.RunUntil([&] { return journal.next() == 4; }, Milliseconds(2000));
  ASSERT_EQ(journal.events().size(), 3u);
  const auto fact = [&](size_t event, const char* name) {
    const std::string* value = FindFact(journal.events()[event].facts, name);
    return value == nullptr ? "" : *value;
  };
  EXPECT_EQ(fact(0, "license"), "京A12345");
  EXPECT_EQ(fact(0, "freenum"), "2");
  EXPECT_EQ(fact(0, "framename"), "P1");
  EXPECT_EQ(fact(1, "kind"), "relay");
  EXPECT_EQ(fact(1, "state"), "occupied");
  EXPECT_EQ(fact(2, "kind"), "unknown");
  EXPECT_EQ(journal.events()[2].text.rfind("3F 3F 3F  (not decoded: ", 0), 0u) << journal.events()[2].text;
}

TEST(Texts, LongAndHostileOnesAreShownShortAndHarmless) {
  EXPECT_EQ(Shortened("a\x1B[2J"), "a\\x1B[2J");
  std::string text;
  for (int i = 0; i < 200; ++i) text += "京";
  const std::string shown = Shortened(text);
  EXPECT_NE(shown.find("... (600 bytes)"), std::string::npos);
  EXPECT_EQ(shown.find("\\x"), std::string::npos) << "cut within a character";
}

// Whether a process of that number still runs; one that only waits to be buried does not.
bool Runs(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(status, text);
  return !text.empty() && text.find(") Z ") == std::string::npos;
}

class Processes : public testing::Test {
 protected:
  void Start(const std::string& script) {
    std::string problem;
    process_.Configure({"/bin/sh", "-c", script}, directory_.path.string());
    ASSERT_TRUE(process_.Start(problem)) << problem;
  }

  TemporaryDirectory directory_;
  Loop loop_;
  Process process_{loop_, "child"};
};

TEST_F(Processes, ASelfMadeEndIsNoticedWithItsLastWords) {
  std::vector<std::string> lines;
  std::string problem, ended = "not";
  process_.OnLine([&](const std::string& line) { lines.push_back(line); });
  process_.OnExit([&](const std::string& how) { ended = how; });
  Start("echo one; echo two >&2; exit 3");
  EXPECT_TRUE(loop_.RunUntil([&] { return !process_.running(); }, Milliseconds(5000)));
  EXPECT_EQ(ended, "with status 3");
  EXPECT_EQ(lines, (std::vector<std::string>{"one", "two"}));
  process_.Configure({"/no/such/program"}, directory_.path.string());
  ASSERT_TRUE(process_.Start(problem));
  loop_.RunUntil([&] { return lines.size() == 3; }, Milliseconds(5000));
  EXPECT_EQ(lines.back(), "cannot run /no/such/program: No such file or directory");
}

TEST_F(Processes, StopEndsAlsoWhoIsFrozenOrDeaf) {
  for (const bool deaf : {false, true}) {
    bool up = false;
    process_.OnLine([&](const std::string&) { up = true; });
    Start(deaf ? "trap '' TERM; echo up; while :; do sleep 0.05; done" : "echo up; sleep 60");
    ASSERT_TRUE(loop_.RunUntil([&] { return up; }, Milliseconds(5000)));
    const pid_t pid = process_.pid();
    process_.Freeze();
    process_.Stop();
    EXPECT_FALSE(process_.running());
    EXPECT_FALSE(Runs(pid)) << (deaf ? "deaf" : "frozen");
  }
}

TEST_F(Processes, DieWithTheDeskEvenWhenItIsKilled) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t desk = fork();
  if (desk == 0) {
    Loop loop;
    Process process(loop, "child");
    std::string problem;
    process.Configure({"/bin/sleep", "60"}, directory_.path.string());
    process.Start(problem);
    const pid_t pid = process.pid();
    if (write(ends[1], &pid, sizeof pid) != sizeof pid) _exit(1);
    pause();
    _exit(0);
  }
  pid_t child = 0;
  ASSERT_EQ(read(ends[0], &child, sizeof child), static_cast<ssize_t>(sizeof child));
  ASSERT_TRUE(Runs(child));
  kill(desk, SIGKILL);
  waitpid(desk, nullptr, 0);
  EXPECT_TRUE(loop_.RunUntil([&] { return !Runs(child); }, Milliseconds(5000)));
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace desk
