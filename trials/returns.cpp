// The store is killed again and again under a flood of requests that read, and is back at any instant between a reading
// that fails and the default that stands in for it. No document of the owner's may be gone afterwards. Exits nonzero
// when one was.
//   returns [--rounds N] [--daemon PROGRAM] [--packaging DIRECTORY]
#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "protocol/commands.h"
#include "protocol/stored_documents.h"
#include "rig.h"

namespace {

namespace bs = businessserver;
using trials::Milliseconds;
using trials::Rig;

constexpr int kInFlight = 64;         // the daemon is never idle
constexpr Milliseconds kFlood(1150);  // a little longer than the daemon leaves a store alone that has failed
constexpr Milliseconds kReadLimit(3000);

struct Document {
  const char* read_by;
  const bs::StoredDocument* stored;
};
constexpr Document kDocuments[] = {
    {bs::kGetTtyioCfg, &bs::kDeviceTtyio},
    {bs::kGetExtTtyioCfg, &bs::kExtTtyio},
    {bs::kGetRs485proCfg, &bs::kRs485pro},
    {bs::kGetParkingColorCfg, &bs::kBusLedColor},
    {bs::kGetParkingReserveCfg, &bs::kParkingReserve},
    {bs::kGetEncCfg, &bs::kEncCfg},
    {bs::kGetCtrMdl, &bs::kDevCtrlMdl},
    {bs::kGetDevPos, &bs::kDevPos},
    {bs::kGetIbcName, &bs::kIbcName},
    {bs::kGetIbcConntime, &bs::kIbcConntime},
    {bs::kGetIbcBroper, &bs::kIbcBroper},
    {bs::kGetIbcId, &bs::kIbcId},
    {bs::kGetIbcPow, &bs::kIbcPower},
    {bs::kGetIbcTxp, &bs::kIbcTxpower},
};

std::string OwnersText(const Document& document) { return std::string("{\"owner\":\"") + document.stored->key + "\"}"; }

class Flood {
 public:
  explicit Flood(Rig& rig) : rig_(rig) {}

  void Run(Milliseconds time) {
    running_ = true;
    for (int i = 0; i < kInFlight; ++i) Ask();
    rig_.loop.RunFor(time);
    running_ = false;
    rig_.loop.RunFor(Milliseconds(50));
  }
  int answered = 0;

 private:
  void Ask() {
    const Document& document = kDocuments[next_++ % std::size(kDocuments)];
    rig_.Send(document.read_by, "0", [this](int, const std::string&) {
      ++answered;
      if (running_) Ask();
    });
  }

  Rig& rig_;
  bool running_ = false;
  size_t next_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  int rounds = 1000;
  trials::Programs programs;
  CLI::App app("Kills the store under a flood of requests");
  app.add_option("--rounds", rounds, "kills of the store");
  programs.AddOptions(app, "returns");
  CLI11_PARSE(app, argc, argv);

  trials::EnterQuietNetwork();
  Rig rig(programs);
  if (!rig.Start()) return 1;
  for (const Document& document : kDocuments) rig.store_client.Set(document.stored->key, OwnersText(document));
  Flood flood(rig);
  int lost = 0;
  for (int round = 0; round < rounds; ++round) {
    rig.device.store.Kill();
    flood.Run(kFlood);
    for (const Document& document : kDocuments) {
      std::string text;
      const bool read = rig.loop.RunUntil([&] { return rig.store_client.Get(document.stored->key, text); }, kReadLimit);
      if (read && text == OwnersText(document)) continue;
      ++lost;
      printf("round %d: %s is %s\n", round, document.stored->key, read ? text.c_str() : "unreadable");
      rig.store_client.Set(document.stored->key, OwnersText(document));
    }
  }
  printf("%d returns of the store, %d readings answered, %d documents lost\n", rounds, flood.answered, lost);
  return lost == 0 && flood.answered > rounds * kInFlight ? 0 : 1;
}
