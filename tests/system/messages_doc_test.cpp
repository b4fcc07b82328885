// docs/messages.md against the device: every example is played in its order on a fresh one.
#include <gtest/gtest.h>

#include <string>

#include "../document_examples.h"
#include "device_on_desk.h"
#include "plain_words.h"
#include "protocol/names.h"

namespace {

namespace bs = businessserver;

constexpr char kPage[] = "messages.md";

class MessagesPage : public DeviceOnDesk {
 protected:
  // An action, or a look at what it led to.
  void Play(const DocumentExample& example) {
    const std::string word = example.kind.substr(0, example.kind.find(' '));
    const std::string type = example.kind.substr(example.kind.find(' ') + 1);
    if (word == "reply") {
      ExpectHeard(example, kReplyTopic);
    } else if (word == "broadcast") {
      ExpectHeard(example, bs::kBusBroadcastMessage);
    } else if (word == "bus") {
      ExpectHeard(example, type);
    } else if (word == "output") {
      EXPECT_EQ(output_, example.text + "\n") << example.place;
    } else if (word == "line") {
      EXPECT_TRUE(Happens(desk::Source::kSerialOut, "bytes", example.text)) << example.place << ": " << example.text;
    } else if (word == "beacon") {
      EXPECT_TRUE(Happens(desk::Source::kBeacon, "command", example.text)) << example.place << ": " << example.text;
    } else {
      Act(example, word, type);
    }
  }

 private:
  void Act(const DocumentExample& example, const std::string& word, const std::string& type) {
    Forget();
    next_event_ = desk_.journal().next();
    if (word == "request") {
      client_.Request(bs::kBusRequestMessage, example.text, kReplyTopic, "");
    } else if (word == "external") {
      client_.Request(bs::kBusExtRequestMessage, example.text, kReplyTopic, "");
    } else if (word == "publish") {
      client_.Publish(type, example.text);
    } else if (word == "arrives") {
      std::string bytes;
      EXPECT_TRUE(words::ParseHex(example.text, bytes)) << example.place;
      desk_.SerialIn(bytes);
    } else if (word == "run") {
      const Outcome outcome = Run(example.text);
      output_ = outcome.output;
      EXPECT_EQ(outcome.status, 0) << example.place << "\n" << output_;
    } else {
      FAIL() << example.place << ": no such kind of example: " << example.kind;
    }
  }

  void ExpectHeard(const DocumentExample& example, const std::string& type) {
    std::string came = Hear(type);
    // The counts are repeated every 36 seconds, whatever else happens.
    const std::string repeat = std::string("\"") + bs::kFrameChanged + "\"";
    while (!came.empty() && !Same(example.text, came) && came.find(repeat) != std::string::npos) came = Hear(type);
    EXPECT_TRUE(Same(example.text, came)) << example.place << "\nthe page shows:\n"
                                          << example.text << "\ncame:\n"
                                          << came;
  }

  std::string output_;
};

TEST_F(MessagesPage, ExamplesAreWhatTheDeviceSays) {
  int played = 0;
  for (const DocumentExample& example : DocumentExamples(kPage)) {
    if (example.kind.empty()) continue;
    Play(example);
    ++played;
  }
  EXPECT_GT(played, 100);
}

}  // namespace
