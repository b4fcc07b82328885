// Documents that lie in the store when the server starts: each part is a document's letter and its text. The server
// starts, lives for a while and answers; what it must be able to read at the next start is readable then.
#include "harness.h"

FUZZ_TARGET(input) {
  const auto stored = [](const auto& document) -> std::string& {
    return Fake().store[std::string(document.key, document.key_length)];
  };
  fuzz::ResetWorld();
  for (std::string_view part : fuzz::Parts(input)) {
    const size_t choice = fuzz::Choose(part, std::size(fuzz::kStoredDocuments));
    stored(*fuzz::kStoredDocuments[choice]) = part;
  }
  fuzz::WithNewServer([&] {
    Fake().Advance(80000, 1000);
    for (const char* const command : {fuzz::kGetTtyioCfg, fuzz::kGetRs485proCfg, fuzz::kQuaryControledLog}) {
      fuzz::Request(command, "0");
    }
    fuzz::Request(fuzz::kExternalControlFramestatus, R"({"ip":"10.0.0.1","frame_status":2})",
                  fuzz::kBusExtRequestMessage);
    fuzz::Deliver(fuzz::kAvsSimulatorTrigger, std::string(sizeof(fuzz::LX_Parking_Result_Param), '\1'));
    fuzz::Deliver(fuzz::kSysDeviceNameChanged, "");
    for (const auto& document : {fuzz::kControledLog, fuzz::kDeviceTtyio, fuzz::kRs485pro, fuzz::kBusLedColor}) {
      fuzz::MustParse(stored(document));
    }
  });
}
