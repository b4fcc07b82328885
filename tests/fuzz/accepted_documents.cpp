// Documents that the contract accepts, in the store when the server starts: it starts, goes by them and finds nothing
// wrong.
#include <climits>

#include "by_schema.h"
#include "contract/faults.h"
#include "contract/schemas.h"
#include "harness.h"
#include "lx_logging.h"

namespace {

struct Kind {
  const Json::Value& schema;
  std::string key;
  fuzz::Form form{schema};
};

std::vector<Kind> AllKinds() {
  std::vector<Kind> kinds;
  for (const std::string& name : contract::Names("documents")) {
    const Json::Value& schema = contract::Schema(name);
    std::string key = name.substr(name.find('/') + 1);
    key.resize(schema["x-key-length"].asUInt());
    kinds.push_back({schema, key});
  }
  return kinds;
}

}  // namespace

FUZZ_TARGET(input) {
  static const std::vector<Kind> kinds = AllKinds();
  fuzz::ResetWorld();
  fuzz::Bytes bytes(input);
  std::vector<std::pair<const Kind*, std::string>> stored;
  for (int i = 0; i < 4 && bytes.Left(); ++i) {
    const Kind& kind = kinds[bytes.Below(kinds.size())];
    stored.emplace_back(&kind, kind.form.Text(bytes));
    Fake().store[kind.key] = stored.back().second;
  }
  Fake().least_level = lxlogging::kError;
  fuzz::WithNewServer([&] {
    Fake().Advance(5000, 1000);
    fuzz::Deliver(fuzz::kAvsSimulatorTrigger, std::string(sizeof(fuzz::LX_Parking_Result_Param), '\0'));
    fuzz::Deliver(fuzz::kSysDeviceNameChanged, "");
    for (const auto& record : Fake().log) {
      if (record.source == "lib/businessserver/devicesdk/bluetooth") continue;
      for (const auto& [kind, document] : stored) {
        if (!contract::FindFaults(kind->schema, fuzz::MustParse(document)).empty())
          return;  // no business of the contract's
      }
      fprintf(stderr, "does not hold: nothing is wrong: %s: %s\n", record.source.c_str(), record.text.c_str());
      for (const auto& [kind, document] : stored) fprintf(stderr, "  %s\n", document.c_str());
      abort();
    }
  });
}
