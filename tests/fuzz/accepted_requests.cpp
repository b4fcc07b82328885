// Requests and messages that the contract accepts, one after the other: the server does what they say, with an answer
// as the contract has it, and finds nothing wrong. They are made along their schemas.
#include <algorithm>
#include <climits>

#include "by_schema.h"
#include "contract/faults.h"
#include "contract/schemas.h"
#include "harness.h"
#include "lx_logging.h"
#include "once.h"

namespace {

struct Kind {
  std::string name;
  const Json::Value& schema;
  const Json::Value* reply;  // null: nothing is answered
  fuzz::Form form{schema};
  std::string topic = schema["x-topic"].asString();
};

std::vector<Kind> AllKinds() {
  std::vector<Kind> kinds;
  for (const char* name : {"send_ttyio_data", "set_ttyio_halt", "net_push"}) {
    kinds.push_back({name, contract::Schema(std::string("messages/") + name), nullptr});
  }
  for (const std::string& path : contract::Names("requests")) {
    const std::string name = path.substr(path.find('/') + 1);
    kinds.push_back({name, contract::Schema(path), &contract::Schema("replies/" + name)});
  }
  return kinds;
}

// The module's words are logged as they come, a line may be too slow for what is sent, and one of the device's own
// defaults is known to be no JSON.
bool IsTrouble(const FakePlatform::LogRecord& record) {
  return record.text.find("Default Cfg is Error Json") == std::string::npos &&
         record.source != "lib/businessserver/devicesdk/bluetooth" &&
         record.text.find(" bytes take the line ") == std::string::npos;
}

// What is wrong with what came of a message; empty for nothing.
std::string TroubleWith(const Kind& kind) {
  for (const auto& record : Fake().log) {
    if (IsTrouble(record)) return record.source + ": " + record.text;
  }
  if (kind.reply == nullptr || kind.name == fuzz::kGetLatestIvsresult) return "";
  static std::vector<size_t> passed;
  const std::string& text = Fake().replies.at(0).data;
  std::string trouble;
  fuzz::OnceFor(text + kind.name, passed, [&] {
    const auto findings = contract::FindFaults(*kind.reply, fuzz::MustParse(text));
    if (!findings.empty()) trouble = findings[0].fault.Text() + " in " + text;
  });
  return trouble;
}

}  // namespace

FUZZ_TARGET(input) {
  static const std::vector<Kind> kinds = AllKinds();
  fuzz::WithServer(input, [&] {
    Fake().least_level = lxlogging::kError;
    fuzz::Bytes bytes(input);
    bool lamp_is_set = false;  // by hand: else setting it is refused
    std::vector<std::pair<const Kind*, std::string>> sent;
    for (int i = 0; i < 4 && bytes.Left(); ++i) {
      const Kind& kind = kinds[bytes.Below(kinds.size())];
      const std::string text = kind.form.Text(bytes);
      if (text.size() > fuzz::kMaxRequestSize || (kind.name == fuzz::kSetDevLed && !lamp_is_set)) continue;
      if (kind.name == fuzz::kSetCtrMdl) lamp_is_set = text.find("\"model\":1") != std::string::npos;
      sent.emplace_back(&kind, text);
      fuzz::Deliver(kind.topic, text);
      const std::string trouble = TroubleWith(kind);
      Fake().log.clear();
      if (trouble.empty()) continue;
      const bool accepted = std::all_of(sent.begin(), sent.end(), [](const auto& message) {
        return contract::FindFaults(message.first->schema, fuzz::MustParse(message.second)).empty();
      });
      if (!accepted)
        continue;  // no business of the contract's; the rest is sent all the same, whatever was seen before
      fprintf(stderr, "does not hold: nothing is wrong: %s\n", trouble.c_str());
      for (const auto& [what, said] : sent) fprintf(stderr, "  %s\n", said.c_str());
      abort();
    }
    Fake().least_level = INT_MAX;
  });
}
