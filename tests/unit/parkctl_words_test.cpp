#include <gtest/gtest.h>

#include <cstring>

#include "base64.h"
#include "console.h"
#include "message_words.h"
#include "migrations.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "record_text.h"
#include "stored_text.h"

namespace {

namespace bs = businessserver;
using namespace std::string_literals;
using parkctl::GivenOption;

// The options of a command line: {"--space", "1", "--occupied", ...}.
std::vector<GivenOption> Options(const std::vector<std::string>& words) {
  std::vector<GivenOption> options;
  for (size_t i = 0; i < words.size(); ++i) {
    for (const parkctl::ResultOption& row : parkctl::kResultOptions) {
      if (words[i] != row.name) continue;
      options.emplace_back(&row, row.value != nullptr ? words[++i] : "");
      break;
    }
  }
  return options;
}

bs::LX_Parking_Result_Param Record(const std::vector<std::string>& words) {
  return parkctl::BuildRecord(Options(words), "", 1700000000);
}

std::string Data(const bs::LX_Parking_Result_Param& record) {
  return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

TEST(ParkctlRecord, OptionsBecomeBytes) {
  const std::string data =
      Data(Record({"--space", "3", "--plate", "粤BD12345", "--occupied", "--trigger", "8", "--name", "入口", "--space",
                   "1", "--status", "alarm", "--vehicle-class", "200"}));
  ASSERT_EQ(data.size(), 968u);
  EXPECT_EQ(data.substr(0, 5), std::string("\x5F\xCE\xDE\x5F\0", 5));  // no plate read
  EXPECT_EQ(static_cast<uint8_t>(data[73]), 200);                      // vehicle colour class
  EXPECT_EQ(data.substr(100, 20), std::string("\1\0\0\0\0\0\0\0\0\0\0\0\3\0\0\0\0\0\0\0", 20));
  EXPECT_EQ(data.substr(280 + 100, 4), std::string(4, '\0'));  // space 2 is not named: no result
  EXPECT_EQ(data.substr(560, 10), std::string("\xD4\xC1"
                                              "BD12345\0",
                                              10));
  EXPECT_EQ(data.substr(560 + 28, 4), std::string("\x13\0\0\0", 4));        // eight characters: the long type
  EXPECT_EQ(data.substr(560 + 64, 4), std::string("\x00\xF1\x53\x65", 4));  // the time
  EXPECT_EQ(data.substr(560 + 112, 13), std::string("\1\0\0\0\x08\0\0\0\xC8\xEB\xBF\xDA\0", 13));
  EXPECT_EQ(parkctl::RecordLine(Record({"--space", "2", "--plate", "WJ皖1", "--space", "1", "--occupied"})),
            "1 occupied no plate (P1) | 2 free WJ皖1 (P2) | 3 -");
}

TEST(ParkctlRecord, EveryFieldHasAPlaceOfItsOwn) {
  const Json::Value space = parkctl::RecordJson(
      Record({"--space",           "2",  "--status",     "2", "--plate",         "粤BD12345", "--plate-type",    "5",
              "--plate-color",     "1",  "--confidence", "2", "--vehicle-color", "3",         "--vehicle-class", "4",
              "--head-confidence", "6",  "--time",       "7", "--trigger",       "8",         "--occupy-line",   "9",
              "--second-flag",     "10", "--name",       "N", "--text",          "T"}))["spaces"][1];
  EXPECT_EQ(parkctl::OneLineText(space),
            R"({"extra_text":"T","head_confidence":6,"occupy_line":9,"plate":"粤BD12345","plate_color":1,)"
            R"("plate_confidence":2,"plate_type":5,"second_flag":10,"space":2,"space_name":"N","space_status":2,)"
            R"("time_stamp":7,"trigger":8,"valid":1,"vehicle_color":3,"vehicle_color_class":4})");
}

TEST(ParkctlRecord, WhatCannotBeSentIsRefused) {
  const std::vector<std::string> kRows[] = {
      {},
      {"--occupied"},
      {"--space", "0"},
      {"--space", "4"},
      {"--space", "1", "--free", "--space", "1"},
      {"--space", "1", "--plate", "京A1234567890123"},  // 16 bytes, and no terminator
      {"--space", "1", "--plate", "🚗"},
      {"--space", "1", "--confidence", "101"},
      {"--space", "1", "--trigger", "2147483648"},
      {"--space", "1", "--status", "full"},
      {"--space", "1", "--time", "-1"},
      {"--space", "1", "--trigger", "1x"},
      {"--space", "1x"},
  };
  for (const auto& row : kRows) {
    EXPECT_THROW(Record(row), parkctl::UserError) << (row.empty() ? "" : row.back());
  }
}

TEST(ParkctlMessages, OneLineEach) {
  const std::string display = lxbase::Base64::EncodeFromArray(
      "\xAA\x02\x17\x03"
      "123\x8F",
      8);
  const std::tuple<const char*, std::string, const char*> kRows[] = {
      {bs::kAvsSimulatorTrigger, Data(Record({"--space", "1", "--occupied", "--plate", "京A12345"})),
       "1 occupied 京A12345 (P1) | 2 - | 3 -"},
      {bs::kBusSimulatorTrigger, std::string(967, 'x'), "not a result record: 967 bytes instead of 968"},
      {bs::kAvsParkRectChange, "", "not a result record: 0 bytes instead of 968"},
      {bs::kBusBroadcastMessage, R"({"type":"ledcolor_changed","body":{"led_color":6}})", "LED colour 6 (lines 1+3)"},
      {bs::kBusBroadcastMessage, R"({"type":"framestatus_changed","body":{"frame_status":2}})",
       "the device shows reserved"},
      {bs::kBusBroadcastMessage, R"({"type":"frame_changed","body":{"totle":3,"free":1,"cm_dev":null}})",
       "1 free of 3"},
      {bs::kBusBroadcastMessage, R"({"type":"ttyio_data_bro","body":{"data":")" + display + R"(","data_len":8}})",
       "serial line received 8 bytes: AA 02 17 03 31 32 33 8F: display 2 shows 123"},
      {bs::kBusBroadlistenMessage, R"({"type":"send_ttyio_data","body":{"data":"qg==","data_len":9}})",
       "to the serial line 1 bytes: AA (data_len says 9)"},
      {bs::kBusBroadlistenMessage, R"({"type":"send_ttyio_data","body":{"data":"q","data_len":1}})",
       "to the serial line data that is not base64"},
      {bs::kBusBroadlistenMessage, R"({"type":"set_ttyio_halt","body":{"halt":1}})", "halt serial output"},
      {bs::kBusBroadlistenMessage, R"({"type":"set_ttyio_halt","body":{"halt":0}})", "resume serial output"},
      {bs::kBusBroadcastMessage, R"({"type":"framestatus_changed","body":{"frame_status":4}})",
       "the device shows unknown"},
      {bs::kBusNetPush, R"({"s_addr":335653056,"pos":1,"totle":3,"free":2,"cm_dev":[{"ip":520202432,"tn":2,"fn":1}]})",
       "192.168.1.20 (left): 2 free of 3; 192.168.1.31: 1 free of 2"},
      {bs::kBusNetPush, R"({"s_addr":"x","pos":-1})", R"({"pos":-1,"s_addr":"x"})"},
      {bs::kBusRequestMessage, R"({"type":"set_ctr_mdl","body":{"model":1}})", R"(set_ctr_mdl {"model":1})"},
      {bs::kBusRequestMessage, "\xFF\x1B[2J", "5 bytes: FF 1B 5B 32 4A"},
      {bs::kBusRequestMessage, R"({"type":"\u001b[31m"})", "\\x1B[31m"},
      {"BUS_REQUEST_MESSAGE/reply", R"({"state":401,"error_msg":"request data is Error"})",
       "401 request data is Error"},
      {bs::kBusBroadcastMessage, "[1]", "[1]"},
      {"SOMETHING_ELSE", "", "(empty)"},
  };
  for (const auto& [type, data, words] : kRows) {
    EXPECT_EQ(parkctl::MessageWords(type, data, Json::Value()), words) << type << " " << data;
  }
}

TEST(ParkctlMessages, MachinesGetTheDocumentTheRecordOrTheBytes) {
  const auto members = [](const char* type, const std::string& data) {
    std::string names;
    for (const std::string& name : parkctl::MessageJson(type, data, Json::Value()).getMemberNames())
      names += name + " ";
    return names;
  };
  const std::string record = Data(Record({"--space", "1", "--free"}));
  EXPECT_EQ(members(bs::kAvsSimulatorTrigger, record), "record type words ");
  EXPECT_EQ(members(bs::kAvsSimulatorTrigger, "{}"), "hex type words ");
  EXPECT_EQ(members(bs::kBusNetPush, "{}"), "document type words ");
  EXPECT_EQ(members(bs::kBusNetPush, record), "hex type words ");
  // A long line ends between two characters.
  const std::string text = parkctl::MessageWords("X", "[\"" + std::string(597, 'x') + "京京\"]", Json::Value());
  EXPECT_EQ(text, "[\"" + std::string(597, 'x') + "...");
}

TEST(ParkctlStore, DocumentsAreFoundByName) {
  for (const bs::StoredDocument* document : bs::kStoredDocuments) {
    EXPECT_EQ(&parkctl::FindDocument(document->key), document);
  }
  EXPECT_EQ(&parkctl::FindDocument("rs485pro"), &bs::kRs485pro);
  EXPECT_EQ(&parkctl::FindDocument("led_color"), &bs::kBusLedColor);
  for (const char* name : {"ttyio", "", "nonsense"})
    EXPECT_THROW(parkctl::FindDocument(name), parkctl::UserError) << name;
}

TEST(ParkctlStore, ChangesAreNamed) {
  Json::Value before;
  Json::Value after;
  ASSERT_TRUE(bs::ParseJson(R"({"a":1,"b":{"c":[1,2],"d":"x"},"e":{}})", before));
  ASSERT_TRUE(bs::ParseJson(R"({"a":1,"b":{"c":[1,3,4]},"e":[],"f":"京"})", after));
  EXPECT_EQ(parkctl::Changes(before, after), (std::vector<std::string>{"~ b.c.1: 2 -> 3", "- b.d: \"x\"",
                                                                       "~ e: {} -> []", "+ b.c.2: 4", "+ f: \"京\""}));
  EXPECT_TRUE(parkctl::Changes(after, after).empty());
  EXPECT_EQ(parkctl::Changes(Json::Value(), Json::Value(5)), std::vector<std::string>{"+ (the whole): 5"});
}

void AddOne(Json::Value& document) { document["n"] = document["n"].asInt() + 1; }
void Double(Json::Value& document) { document["n"] = document["n"].asInt() * 2; }

TEST(ParkctlStore, DocumentsGoThroughEachMigrationOnce) {
  const parkctl::Migrations migrations = {{&bs::kIbcName, AddOne}, {&bs::kDevPos, AddOne}, {&bs::kIbcName, Double}};
  const struct {
    const char* name;
    std::string number, text, number_after, text_after;
    size_t lines;
    const char* problem;
  } kRows[] = {
      {"of the first release", "", R"({"n": 3})", "3", "{\n\t\"n\" : 8\n}\n", 2, ""},
      {"a default, with its NUL", "", "{\"n\": 3}\0"s, "3", "{\n\t\"n\" : 8\n}\n", 2, ""},
      {"half the way", "2", R"({"n": 3})", "3", "{\n\t\"n\" : 6\n}\n", 1, ""},
      {"through all", "3", R"({"n": 3})", "3", R"({"n": 3})", 0, ""},
      {"no JSON", "", "{", "3", "{", 2, ""},
      {"of no known form", "", R"({"n": []})", "3", R"({"n": []})", 2, ""},
      {"of a later version", "4", R"({"n": 3})", "4", R"({"n": 3})", 0, "later version"},
      {"no number", "3x", R"({"n": 3})", "3x", R"({"n": 3})", 0, "later version"},
  };
  const std::string key(bs::kIbcName.key, bs::kIbcName.key_length);
  for (const auto& row : kRows) {
    KvdbDocuments documents = {{key, row.text}, {"other", R"({"n": 3})"}, {"zz", ""}};
    if (!row.number.empty()) documents.insert(documents.begin() + 2, {"store_form_value", row.number});
    const parkctl::MigrationResult result = parkctl::Migrate(migrations, documents);
    const KvdbDocuments after = {
        {key, row.text_after}, {"other", R"({"n": 3})"}, {"store_form_value", row.number_after}, {"zz", ""}};
    EXPECT_EQ(documents, after) << row.name;
    EXPECT_EQ(result.lines.size(), row.lines) << row.name;
    EXPECT_EQ(result.changed, row.number != row.number_after) << row.name;
    EXPECT_EQ(result.problem.empty(), *row.problem == '\0') << row.name;
    EXPECT_NE(result.problem.find(row.problem), std::string::npos) << row.name << result.problem;
  }
  KvdbDocuments none, released = {{key, ""}};
  EXPECT_TRUE(parkctl::Migrate(migrations, none).changed) << "a new store is in the newest form";
  EXPECT_EQ(none, (KvdbDocuments{{"store_form_value", "3"}}));
  EXPECT_FALSE(parkctl::Migrate({}, released).changed);
}

TEST(ParkctlInput, JsonIsTakenStrictly) {
  EXPECT_EQ(parkctl::ParseUserJson("{\"a\": /* why */ 1}", "it")["a"], 1);
  for (const std::string& text : {std::string("{\"a\":1,}"), std::string("{} x"), std::string("{\"a\":1,\"a\":2}"),
                                  std::string(""), std::string(2000, '[')}) {
    EXPECT_THROW(parkctl::ParseUserJson(text, "it"), parkctl::UserError) << text.substr(0, 20);
  }
}

}  // namespace
