#include "script/script.h"

#include <gtest/gtest.h>

#include "desk/desk.h"
#include "script/script_runner.h"

namespace desk {
namespace {

using Milliseconds = Loop::Milliseconds;

TEST(ScriptText, MistakesAreNamedWithFileLineAndUsage) {
  struct Row {
    const char* line;
    const char* mistake;
  };
  const Row rows[] = {
      {"bogus", "\"bogus\" is not a word that scripts know"},
      {"car arrives", "\"space\" was expected"},
      {"car arrives space 4", "spaces are numbered 1 to 3"},
      {"car arrives space 1 plate", "the value of plate is missing\n    usage: car arrives space N"},
      {"car arrives space 1 colour 4", "\"colour\" is no field of a result"},
      {"car arrives space 1 confidence high", "confidence needs a number"},
      {"car arrives space 1 plate 京A123456789012345", "is not GBK text of at most 16 bytes"},
      {"car leaves space 1 and more", "\"and\" is no field"},
      {"neighbour 192.168.1 left total 3 free 1", "is no address"},
      {"neighbour 192.168.1.20 behind total 3 free 1", "\"behind\" is no position"},
      {"neighbour 192.168.1.20 left free 1", "\"total\" was expected, not \"free\""},
      {"beacon angry", "no module is \"angry\""},
      {"beacon slow 30", "\"s\" was expected"},
      {"kill cat", "none of broker, store, daemon, relay"},
      {"wait", "a number of seconds is missing"},
      {"wait 5 minutes", "\"s\" was expected"},
      {"wait 2 s 3", "nothing more was expected"},
      {"serial in 0G", "are no bytes"},
      {"expect", "what to expect is missing"},
      {"expect weather", "nothing can be expected of \"weather\"; there are led"},
      {"expect next led off", "\"next\" is for events"},
      {"wait nan s", "\"nan\" is no number of seconds"},
      {"expect led purple", "\"lines\" was expected, not \"purple\""},
      {"expect reply maybe", "must be a number"},
      {"expect broadcast frame_changed free", "name=value was expected, not \"free\""},
      {"expect display middle 3", "there is no display"},
      {"expect display left truth", "\"truth\" is for a site: ./run --site"},
      {"at ENTRANCE car arrives space 1", "\"at\" is for a site: ./run --site"},
      {"kill hub", "none of broker, store, daemon, relay"},
      {"expect no daemon ready within 2 s", "nothing more was expected"},
  };
  for (const auto& row : rows) {
    Script script;
    std::vector<std::string> mistakes;
    EXPECT_FALSE(ParseScript("a.script", std::string("# remark\n\n") + row.line, script, mistakes)) << row.line;
    ASSERT_EQ(mistakes.size(), 1u) << row.line;
    EXPECT_EQ(mistakes[0].rfind("a.script:3: ", 0), 0u) << mistakes[0];
    EXPECT_NE(mistakes[0].find(row.mistake), std::string::npos) << mistakes[0];
  }
}

TEST(ScriptText, OnASiteEveryLineSaysWhere) {
  struct Row {
    const char* line;
    const char* mistake;  // empty: there is none
  };
  const Row rows[] = {
      {"wait 1 s", ""},
      {"say all of it", ""},
      {"kill hub", ""},
      {"pull cable L1-001", ""},
      {"at L1-001 car arrives space 1", ""},
      {"at L1-001 kill relay", ""},
      {"at L1-001 expect led off", ""},
      {"expect at ENTRANCE display left truth within 20 s", ""},
      {"expect no at ENTRANCE display left 3", "of which device? expect at DEVICE"},
      {"expect display left truth", "of which device? expect at DEVICE"},
      {"expect at L9-001 display left truth", "the site has no device \"L9-001\""},
      {"expect at ENTRANCE display left trough", "a display shows a number, or truth on a site, not \"trough\""},
      {"car arrives space 1", "which device? at DEVICE ..., or one of wait, expect at, kill hub, start hub, "},
      {"kill broker", "which device?"},
      {"power cut L1-001", "which device?"},
      {"at", "a device's name is missing"},
      {"at L1-1 car arrives space 1", "the site has no device \"L1-1\""},
      {"at L1-001 car arrives space 4", "spaces are numbered 1 to 3\n    usage: car arrives space N"},
      {"at L1-001 kill hub", "none of broker, store, daemon, relay"},
      {"at L1-001 pull cable", "\"pull\" is not a word that scripts know"},
      {"pull cable", "a device's name is missing\n    usage: pull cable DEVICE"},
      {"power off L9-001", "the site has no device \"L9-001\"\n    usage: power off DEVICE"},
      {"plug cable L1-001 now", "nothing more was expected"},
      {"freeze hub 3 s", "nothing more was expected"},
  };
  for (const auto& row : rows) {
    Script script;
    std::vector<std::string> mistakes;
    const bool good = ParseScript("a", row.line, script, mistakes, {"ENTRANCE", "L1-001"});
    EXPECT_EQ(good, *row.mistake == '\0') << row.line << (good ? "" : ": " + mistakes[0]);
    if (good) continue;
    EXPECT_NE(mistakes[0].find(row.mistake), std::string::npos) << row.line << ": " << mistakes[0];
  }
}

TEST(ScriptText, EveryMistakeIsFoundInOneReadingAndContinuedLinesCountFromTheirFirst) {
  Script script;
  std::vector<std::string> mistakes;
  EXPECT_FALSE(
      ParseScript("a", "request set_dev_pos {\"pos\": \\\n  1}\nnonsense \\\n x\nwait 1 s\nrubbish", script, mistakes));
  ASSERT_EQ(mistakes.size(), 2u);
  EXPECT_EQ(mistakes[0].rfind("a:3: ", 0), 0u) << mistakes[0];
  EXPECT_EQ(mistakes[1].rfind("a:6: ", 0), 0u) << mistakes[1];
  ASSERT_EQ(script.statements.size(), 2u);
  EXPECT_EQ(script.statements[0].text, "request set_dev_pos {\"pos\": 1}");
  EXPECT_EQ(script.statements[1].wait, Milliseconds(1000));
}

// A desk that was never started: actions leave their events, and the test adds what the daemon would cause.
class Run : public testing::Test {
 protected:
  Run() : desk_(DevicePlan()), runner_(desk_, [] { return false; }) {}

  bool Play(const std::string& text) {
    Script script;
    std::vector<std::string> mistakes;
    EXPECT_TRUE(ParseScript("a.script", text, script, mistakes)) << mistakes[0];
    return runner_.Run(script, problem_);
  }
  void Later(int milliseconds, const std::string& color) {
    desk_.loop().After(Milliseconds(milliseconds), [this, color] {
      desk_.journal().Add(Source::kBroadcast, "ledcolor_changed " + color,
                          {{"type", "ledcolor_changed"}, {"led_color", color}});
    });
  }

  Desk desk_;
  ScriptRunner runner_;
  std::string problem_;
};

TEST_F(Run, AnEventMeetsOneExpectation) {
  Later(10, "3");
  EXPECT_FALSE(
      Play("crosses line space 1 on\n"
           "expect broadcast ledcolor_changed led_color=3\n"
           "expect broadcast ledcolor_changed led_color=3 within 100 ms"));
  EXPECT_EQ(problem_.rfind("a.script:3: ", 0), 0u) << problem_;
  EXPECT_NE(problem_.find("not so within 100 ms; seen: \n      ledcolor_changed 3  (met another line)"),
            std::string::npos)
      << problem_;
}

TEST_F(Run, EventsAreExpectedInAnyOrderSinceTheFirstActionAfterTheLastExpectation) {
  Later(5, "1");
  Later(10, "2");
  EXPECT_TRUE(
      Play("car arrives space 1\nwait 50 ms\ncar arrives space 2\n"
           "expect broadcast ledcolor_changed led_color=2\nexpect broadcast ledcolor_changed led_color=1"))
      << problem_;
  Later(5, "5");
  EXPECT_TRUE(Play("wait 50 ms\nsay a remark is no action\nexpect broadcast ledcolor_changed led_color=5")) << problem_;
  Later(5, "6");
  EXPECT_FALSE(Play("wait 50 ms\ncar leaves space 1\nexpect broadcast ledcolor_changed led_color=6 within 50 ms"));
  EXPECT_NE(problem_.find("seen: nothing of the kind"), std::string::npos) << problem_;
}

TEST_F(Run, NextTakesTheOrderAndLetsNothingStandBetween) {
  const std::string colour = " broadcast ledcolor_changed led_color=";
  const struct {
    const char* expected;  // the colours 1, 2 and 3 come in this order
    bool seen;
  } rows[] = {{"123", true}, {"23", true}, {"21", false}, {"13", false}, {"12", true}};
  for (const auto& row : rows) {
    for (const int color : {1, 2, 3}) Later(5 * color, std::to_string(color));
    std::string script = "car arrives space 1\nwait 50 ms\nexpect" + colour + row.expected[0];
    for (const char* next = row.expected + 1; *next != 0; ++next) {
      script += "\nexpect next" + colour + *next + " within 50 ms";
    }
    EXPECT_EQ(Play(script), row.seen) << row.expected << ": " << problem_;
  }
}

TEST_F(Run, WhatMustNotComeMustNotComeForTheWholeTime) {
  Later(200, "4");
  EXPECT_TRUE(Play("car arrives space 1\nexpect no broadcast ledcolor_changed for 50 ms")) << problem_;
  EXPECT_FALSE(Play("expect no broadcast ledcolor_changed for 2 s"));
  EXPECT_NE(problem_.find("not so for 2 s; seen: \n      ledcolor_changed 4"), std::string::npos) << problem_;
}

TEST_F(Run, StatesAreWaitedForAndNamedWhenTheyDoNotCome) {
  EXPECT_TRUE(
      Play("expect daemon down\nexpect broker down\nexpect beacon period 1000\nexpect no beacon major 7 for 20 ms"));
  EXPECT_FALSE(Play("expect beacon major 7 within 20 ms"));
  EXPECT_NE(problem_.find("expect beacon major 7 within 20 ms\n    not so within 20 ms; seen: 1"), std::string::npos)
      << problem_;
}

TEST_F(Run, InterruptionEndsAScriptAtOnce) {
  bool interrupted = false;
  ScriptRunner runner(desk_, [&] { return interrupted; });
  desk_.loop().After(Milliseconds(20), [&] { interrupted = true; });
  Script script;
  std::vector<std::string> mistakes;
  ASSERT_TRUE(ParseScript("a", "wait 60 s\nsay never", script, mistakes));
  const auto start = Loop::Clock::now();
  EXPECT_FALSE(runner.Run(script, problem_));
  EXPECT_EQ(problem_, "a:1: interrupted");
  EXPECT_LT(Loop::Clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace desk
