// docs/messages.md against the device: every example is played in its order on a fresh one, and nothing that the device
// knows is missing from the page.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>

#include "device_on_desk.h"
#include "document_examples.h"
#include "plain_words.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/stored_documents.h"

namespace {

namespace bs = businessserver;

constexpr char kPage[] = "messages.md";

// Whether what came is what the page shows; "<...>" on the page stands for a value that varies.
bool Same(const Json::Value& shown, const Json::Value& came) {
  if (shown.isString() && shown.asString()[0] == '<') return !came.isNull();
  if (shown.type() != came.type() || shown.size() != came.size()) return false;
  if (shown.isObject()) {
    const auto names = shown.getMemberNames();
    return std::all_of(names.begin(), names.end(),
                       [&](const std::string& name) { return came.isMember(name) && Same(shown[name], came[name]); });
  }
  for (Json::ArrayIndex i = 0; shown.isArray() && i < shown.size(); ++i) {
    if (!Same(shown[i], came[i])) return false;
  }
  return shown.isArray() || shown == came;
}

bool Same(const std::string& shown, const std::string& came) {
  if (shown == "<" + std::to_string(came.size()) + " bytes>") return true;
  Json::Value shown_document;
  Json::Value came_document;
  if (!bs::ParseJson(shown, shown_document) || !bs::ParseJson(came, came_document)) return false;
  return Same(shown_document, came_document);
}

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
      ExpectHappened(example, desk::Source::kSerialOut, "bytes");
    } else if (word == "beacon") {
      ExpectHappened(example, desk::Source::kBeacon, "command");
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

  void ExpectHappened(const DocumentExample& example, desk::Source source, const char* fact) {
    const auto happened = [&] {
      const auto& events = desk_.journal().events();
      return std::any_of(events.begin(), events.end(), [&](const desk::Event& event) {
        const std::string* value = event.source == source ? desk::FindFact(event.facts, fact) : nullptr;
        return event.number >= next_event_ && value != nullptr && *value == example.text;
      });
    };
    EXPECT_TRUE(desk_.loop().RunUntil(happened, Milliseconds(3000))) << example.place << ": " << example.text;
  }

  std::string output_;
  uint64_t next_event_ = 0;
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

TEST(MessagesPageIsWhole, NamesEverythingThatCrossesTheBus) {
  const std::string page = DocumentText(kPage);
  std::string requests;
  for (const DocumentExample& example : DocumentExamples(kPage)) {
    if (example.kind == "request" || example.kind == "external") requests += example.text + "\n";
  }
  std::ifstream names(SOURCE_DIRECTORY "/lib/businessserver/protocol/names.h");
  std::string section;
  std::smatch match;
  for (std::string line; std::getline(names, line);) {
    if (std::regex_match(line, match, std::regex("// ---- (.*) ----"))) section = match[1];
    if (!std::regex_match(line, match, std::regex(R"re(inline constexpr char k\w+\[\] = "(\w+)";)re"))) continue;
    const std::string name = match[1];
    const bool is_type = section.find("message types") != std::string::npos;
    EXPECT_TRUE(!is_type || page.find('`' + name + '`') != std::string::npos) << name << " is not on the page";
  }
  for (const bs::Command& command : bs::kCommands) {
    EXPECT_NE(requests.find('"' + std::string(command.name) + '"'), std::string::npos)
        << command.name << " has no example";
  }

  for (const bs::StoredDocument* document : bs::kStoredDocuments) {
    const std::string row = std::string("| `") + document->key + "` | " + std::to_string(document->key_length) + " |";
    EXPECT_NE(page.find(row), std::string::npos) << "no row " << row;
  }
  for (const bs::RequestStatus& status : {bs::kAllDone, bs::kRequestDataError, bs::kRequestNotJson, bs::kErrorType,
                                          bs::kSetError, bs::kExternalControlOff}) {
    const std::string row = "| " + std::to_string(status.state) + " | " + status.error_msg + " |";
    EXPECT_NE(page.find(row), std::string::npos) << "no row " << row;
  }
}

}  // namespace
