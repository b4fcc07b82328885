// Requests over the real bus, their bytes in the real store, and a burst of them.
#include <gtest/gtest.h>

#include <string>

#include "device_on_desk.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/stored_documents.h"

namespace {

using businessserver::kBusRequestMessage;
using desk::Loop;

class RequestsTest : public DeviceOnDesk {};

TEST_F(RequestsTest, StoreHoldsTheStyledBodyUnderTheCountedKey) {
  struct Row {
    const char* command;
    const businessserver::StoredDocument& stored;
    const char* body;
  };
  const Row rows[] = {
      {"set_ttyio_cfg", businessserver::kDeviceTtyio,
       R"({"ttyionum":2,"baudrate":9600,"checkbit":0,"databit":8,"stopbit":1,"x":"京"})"},
      {"set_ext_ttyio_cfg", businessserver::kExtTtyio,
       R"({"proto":255,"frame1_addr":0,"frame2_addr":0,"frame3_addr":0})"},
      {"set_rs485pro_cfg", businessserver::kRs485pro, R"({"pro_cfg":[{"end":"33"}]})"},
      {"set_parking_color_cfg", businessserver::kBusLedColor, R"({"parkingledcolorcfg":{"parkingfreeledcolor":2}})"},
      {"set_parking_reserve_cfg", businessserver::kParkingReserve, R"({"reservecfg":{}})"},
      {"set_enc_cfg", businessserver::kEncCfg, R"({"level":1,"data":"AAAA","data_len":3})"},
      {"set_ctr_mdl", businessserver::kDevCtrlMdl, R"({"model":0})"},
      {"set_dev_pos", businessserver::kDevPos, R"({"pos":1})"},
      {"set_ibc_name", businessserver::kIbcName, R"({"name":"gate"})"},
      {"set_ibc_broper", businessserver::kIbcBroper, R"({"time":1000})"},
      {"set_ibc_pow", businessserver::kIbcPower, R"({"power":-5})"},
      {"set_ibc_txp", businessserver::kIbcTxpower, R"({"power":-20})"},
  };
  for (const Row& row : rows) {
    Json::Value reply;
    businessserver::ParseJson(
        Ask(kBusRequestMessage, std::string("{\"type\":\"") + row.command + "\",\"body\":" + row.body + "}"), reply);
    EXPECT_EQ(reply["state"].asInt(), 200) << row.command;
    Json::Value body;
    ASSERT_TRUE(businessserver::ParseJson(row.body, body));
    std::string stored;
    EXPECT_TRUE(desk_.store_client().Get(std::string(row.stored.key, row.stored.key_length), stored)) << row.command;
    EXPECT_EQ(stored, businessserver::StyledText(body)) << row.command;
  }
}

TEST_F(RequestsTest, AnswersEachRequestOfABurstExactlyOnce) {
  constexpr int kRequests = 20000;
  const std::string request = R"({"type":"get_device_frame_status","pad":")" + std::string(450, 'x') + "\"}";
  for (int i = 0; i < kRequests; ++i) {
    client_.Request(kBusRequestMessage, request, kReplyTopic, std::to_string(i));
    if (i % 100 == 0) desk_.loop().Turn(Loop::Milliseconds(0));
  }
  desk_.loop().RunUntil([&] { return answers_.size() >= static_cast<size_t>(kRequests); }, Loop::Milliseconds(60000));
  desk_.loop().RunFor(Loop::Milliseconds(200));
  EXPECT_EQ(answers_.size(), static_cast<size_t>(kRequests));
  for (const auto& [correlation, count] : answers_) ASSERT_EQ(count, 1) << correlation;
}

}  // namespace
