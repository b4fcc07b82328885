// The contract against the device: its witness sees what is wrong, and values at and beyond each edge do what the
// schemas say that they do.
#include "device_on_desk.h"

namespace {

TEST(ContractWatch, SeesWhatIsAgainstTheContract) {
  desk::Loop loop;
  ContractWatch watch(loop);
  const struct {
    const char* topic;
    const char* payload;
    const char* fault;  // its beginning; empty: none
  } kRows[] = {
      {"BUS_BROADCAST_MESSAGE", R"({"type":"ledcolor_changed","body":{"led_color":7}})", ""},
      {"BUS_BROADCAST_MESSAGE", R"({"type":"ledcolor_changed","body":{"led_color":8}})",
       "messages/ledcolor_changed: body.led_color: 8 is none of"},
      {"BUS_BROADCAST_MESSAGE", R"({"type":"frame_changed","body":{"totle":1,"free":1}})",
       "messages/frame_changed: body.cm_dev: missing"},
      {"BUS_BROADCAST_MESSAGE", R"({"type":"led_changed"})", "no such message"},
      {"BUS_BROADCAST_MESSAGE", "{", "no such message"},
      {"BUS_SIMULATOR_TRIGGER", "short", "no record"},
      {"reply/x", R"({"state":200,"error_msg":"All done","type":"get_dev_pos","body":{"pos":4}})",
       "replies/get_dev_pos: body.pos: 4 is none of"},
      {"reply/x", R"({"state":200,"error_msg":"set error","type":"set_dev_pos"})", "replies/set_dev_pos: "},
      {"reply/x", R"({"state":403,"error_msg":"error type","type":"get_dev_pos"})", ""},
      {"park/g/counts/a/L1", R"({"spaces":1,"free":2})", "site/counts: free: 2 is above spaces, 1"},
      {"park/g/health/a", R"({"online":true})", "site/health: run: missing"},
      // What a test asks for against the contract comes back.
      {"BUS_REQUEST_MESSAGE", R"({"type":"set_dev_pos","body":{"pos":4}})", ""},
      {"reply/x", R"({"state":200,"error_msg":"All done","type":"get_dev_pos","body":{"pos":4}})", ""},
  };
  for (const auto& row : kRows) {
    const std::string fault = watch.See(row.topic, row.payload);
    const bool as_expected = *row.fault == '\0' ? fault.empty() : fault.find(row.fault) == 0;
    EXPECT_TRUE(as_expected) << row.payload << "\nfault: " << fault;
  }
}

}  // namespace
