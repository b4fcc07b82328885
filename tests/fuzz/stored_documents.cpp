// Documents that lie in the store when the server starts: each part is a document's letter and its text. The server
// starts, lives for a while and answers what it is asked of them; what it must be able to read at the next start is
// readable then.
#include <set>

#include "harness.h"

FUZZ_TARGET(input) {
  const auto stored = [](const auto& document) -> std::string& {
    return Fake().store[std::string(document.key, document.key_length)];
  };
  std::set<const fuzz::StoredDocument*> documents;
  fuzz::ResetWorld();
  for (std::string_view part : fuzz::Parts(input)) {
    const fuzz::StoredDocument* const document =
        fuzz::kStoredDocuments[fuzz::Choose(part, std::size(fuzz::kStoredDocuments))];
    stored(*document) = part;
    documents.insert(document);
  }
  fuzz::WithNewServer([&] {
    Fake().Advance(80000, 1000);
    for (const fuzz::Command& command : fuzz::kCommands) {
      if (command.effect != fuzz::CommandEffect::kReads || documents.count(command.document) == 0) continue;
      fuzz::Request(std::string(command.name), "0");
    }
    fuzz::Request(fuzz::kExternalControlFramestatus, R"({"ip":"10.0.0.1","frame_status":2})",
                  fuzz::kBusExtRequestMessage);
    fuzz::Deliver(fuzz::kAvsSimulatorTrigger, std::string(sizeof(fuzz::LX_Parking_Result_Param), '\1'));
    if (documents.count(&fuzz::kSysDeviceName) != 0) fuzz::Deliver(fuzz::kSysDeviceNameChanged, "");
    for (const auto& document : {fuzz::kControledLog, fuzz::kDeviceTtyio, fuzz::kRs485pro, fuzz::kBusLedColor}) {
      fuzz::MustBeJson(stored(document));
    }
  });
}
