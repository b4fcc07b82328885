// Result records through every consumer: LED, counts, both serial outputs, the republished copy. The first byte
// chooses the serial protocol; then come a type's letter and a record, as often as they last.
#include "harness.h"

FUZZ_TARGET(input) {
  constexpr const char* kSettings[] = {R"({"proto":0})", R"({"proto":1,"frame1_addr":1,"frame3_addr":300})",
                                       R"({"proto":0,"f_ena":1,"f_addr":1,"l_ena":1,"r_ena":1})", R"({"proto":7})"};
  fuzz::WithServer(input, [&] {
    std::string_view rest = input;
    fuzz::Request(fuzz::kSetExtTtyioCfg, kSettings[fuzz::Choose(rest, std::size(kSettings))]);
    while (!rest.empty()) {
      const char* const type = fuzz::DP_METHOD[fuzz::Choose(rest, 2)];
      std::string record(rest.substr(0, sizeof(fuzz::LX_Parking_Result_Param)));
      rest.remove_prefix(record.size());
      record.resize(sizeof(fuzz::LX_Parking_Result_Param));
      fuzz::Deliver(type, record);
    }
    fuzz::Request(fuzz::kGetLatestIvsresult, "0");
  });
}
