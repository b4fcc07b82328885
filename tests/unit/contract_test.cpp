// The contract as a library: what is refused and in which words, what people write badly, and that the schemas and the
// device's own tables say the same.
#include <gtest/gtest.h>

#include <string>

#include "../document_examples.h"
#include "contract/check.h"
#include "contract/explain.h"
#include "contract/faults.h"
#include "contract/json_text.h"
#include "contract/schemas.h"
#include "contract/validate.h"
#include "plain_words.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/parking_result.h"
#include "protocol/stored_documents.h"

namespace {

namespace bs = businessserver;

Json::Value Parsed(const std::string& text) {
  Json::Value document;
  EXPECT_TRUE(bs::ParseJson(text, document)) << text;
  return document;
}

std::string FaultsOf(const std::string& name, const Json::Value& document) {
  std::string text;
  for (const contract::Fault& fault : contract::Check(name, document)) {
    text += (text.empty() ? "" : "\n") + fault.Text();
  }
  return text;
}

TEST(Contract, SaysWhichFieldIsWrongAndWhatWouldBeRight) {
  constexpr char kLine[] = R"({"type":"set_ttyio_cfg","body":{"ttyionum":2,"checkbit":0,"databit":8,"stopbit":1,)";
  const struct {
    const char* schema;
    std::string document;
    const char* faults;
  } kRows[] = {
      {"requests/set_ttyio_cfg", std::string(kLine) + R"("baudrate":9600.0}})", ""},
      {"requests/set_ttyio_cfg", std::string(kLine) + R"("baudrate":12345}})",
       "body.baudrate: 12345 is none of 300, 1200, 2400, 4800, 9600, 19200, 38400, 115200"},
      {"requests/set_ttyio_cfg", std::string(kLine) + R"("baudrate":"9600"}})",
       "body.baudrate: \"9600\" is none of 300, 1200, 2400, 4800, 9600, 19200, 38400, 115200"},
      {"requests/set_ttyio_cfg", std::string(kLine) + R"("baudrat":9600}})",
       "body.baudrate: missing, one of 300, 1200, 2400, 4800, 9600, 19200, 38400, 115200 is needed\n"
       "body.baudrat: no such member, did you mean baudrate?"},
      {"requests/set_dev_pos", R"({"type":"set_dev_pos"})", "body: missing, an object is needed"},
      {"requests/set_dev_pos", R"({"type":"set_dev_pos","body":[1]})", "body: [1] is a list, an object is needed"},
      {"requests/set_dev_pos", R"({"type":"set_dev_pos","body":{"pos":true}})",
       "body.pos: true is none of 0 (own group), 1 (left), 2 (right), 3 (front)"},
      {"requests/set_dev_pos", R"({"type":"set_dev_pos","body":{"pos":1},"bdoy":1})",
       "bdoy: no such member, did you mean body?"},
      {"requests/set_dev_pos", "[]", "[] is a list, an object is needed"},
      {"requests/get_dev_pos", R"({"type":"get_dev_pos","body":{"pos":1}})",
       "body: has the members pos, at most 0 allowed"},
      {"requests/check_dev", R"({"type":"check_dev","body":{"led":3,"time":0}})",
       "body.time: 0 is not a whole number from 1 to 4294967"},
      {"requests/check_dev", R"({"type":"check_dev","body":{"led":3,"time":1.5}})",
       "body.time: 1.5 is a number, a whole number from 1 to 4294967 is needed"},
      {"requests/set_ibc_name", R"({"type":"set_ibc_name","body":{"name":"五个汉字啊"}})", ""},
      {"requests/set_ibc_name", R"({"type":"set_ibc_name","body":{"name":"六个汉字啊啊"}})",
       "body.name: 18 bytes, at most 15 fit"},
      {"requests/set_ibc_name", R"({"type":"set_ibc_name","body":{"name":"sixteen bytes ok"}})",
       "body.name: 16 bytes, at most 15 fit"},
      {"requests/set_ibc_name", R"({"type":"set_ibc_name","body":{"name":"a\nb"}})",
       "body.name: \"a\\nb\" is not text without control characters"},
      {"requests/set_ibc_name", R"({"type":"set_ibc_name","body":{"name":"a\u0085b"}})",
       "body.name: \"a\\xC2\\x85b\" is not text without control characters"},
      {"requests/set_ibc_name", R"({"type":"set_ibc_name","body":{"name":""}})",
       "body.name: is empty, text without control characters is needed"},
      {"requests/set_bt", R"({"type":"set_bt","body":{}})", "body: names nothing, one of uuid, major, minor is needed"},
      {"requests/set_bt", R"({"type":"set_bt","body":{"major":65536}})",
       "body.major: 65536 is not a whole number from 0 to 65535"},
      {"requests/set_rs485pro_cfg", R"({"type":"set_rs485pro_cfg","body":{"pro_cfg":[{"licence":1}]}})",
       "body.pro_cfg[0].licence: no such member, did you mean license?"},
      {"requests/set_rs485pro_cfg", R"({"type":"set_rs485pro_cfg","body":{"pro_cfg":[{"header":"BB880"}]}})",
       "body.pro_cfg[0].header: \"BB880\" is not pairs of hexadecimal digits, none of them 00"},
      {"requests/set_rs485pro_cfg", R"({"type":"set_rs485pro_cfg","body":{"pro_cfg":[{"enable":1,"time":1}]}})",
       "body.pro_cfg[0]: has the members enable, time, at most 1 allowed"},
      {"requests/set_rs485pro_cfg", R"({"type":"set_rs485pro_cfg","body":{"pro_cfg":[]}})",
       "body.pro_cfg: has 0 entries, at least 1 needed"},
      {"requests/set_enc_cfg", R"({"type":"set_enc_cfg","body":{"level":1,"data":"MTIzNDU2Nzg=","data_len":9}})",
       "body.data_len: 9, but data stands for 8 bytes"},
      // What is stored, answered or broadcast may hold what is somebody else's.
      {"replies/get_rs485pro_cfg",
       R"({"state":200,"error_msg":"All done","type":"get_rs485pro_cfg","body":{"pro_cfg":[{"enable":1,"note":1}]}})",
       ""},
      {"messages/set_ttyio_halt", R"({"type":"set_ttyio_halt","body":{"halt":1,"by":"crane"},"at":5})", ""},
      {"messages/not_understood", R"({"state":404,"error_msg":"set error"})", ""},
      {"messages/not_understood", R"({"state":404,"error_msg":"set error","type":{"a":1}})", ""},
      {"messages/send_ttyio_data", R"({"type":"send_ttyio_data","body":{"data":"A=B=","data_len":1}})",
       "body.data: \"A=B=\" is not base64"},
      {"messages/net_push", R"({"s_addr":16777343,"totle":1,"free":2,"pos":1,"cm_dev":null})",
       "s_addr: 16777343 is not allowed\nfree: 2 is above totle, 1"},
      {"documents/bus_dev_pos_value", R"({"pos":1,"somebody's":"own"})", ""},
      {"documents/relay_value", R"({"broker":""})", ""},
      {"documents/relay_value", R"({"broker":"mqtt://hub:0","site":"garage"})",
       "broker: \"mqtt://hub:0\" is not mqtt://HOST or mqtts://HOST, with :PORT where it is not the usual one\n"
       "device: missing"},
      {"site/site_file", R"({"site":"g","devices":{"a b":{"zone":"L2"}}})",
       "devices.a b: \"a b\" is not 1 to 32 letters, digits, _ and -"},
      {"site/try_change",
       R"({"type":"try_change","body":{"id":"a","seconds":9,"changes":[{"type":"set_dev_pos","body":{"pos":4}}]}})",
       "body.changes[0].body.pos: 4 is none of 0 (own group), 1 (left), 2 (right), 3 (front)"},
  };
  for (const auto& row : kRows) EXPECT_EQ(FaultsOf(row.schema, Parsed(row.document)), row.faults) << row.document;
}

TEST(Contract, SurvivesWhatIsHuge) {
  const std::string long_text(1000000, 'a');
  Json::Value document;
  document["type"] = "set_ibc_name";
  document["body"]["name"] = long_text;
  EXPECT_EQ(FaultsOf("requests/set_ibc_name", document).substr(0, 45),
            "body.name: 1000000 bytes, at most 15 fit\nbody");
  document["body"] = Json::Value();
  document["body"][long_text] = 1;
  EXPECT_NE(FaultsOf("requests/set_ibc_name", document), "");
  Json::Value command;
  command["type"] = "cmd";
  command["body"]["cmdline"] = std::string(2100, 'a');
  EXPECT_EQ(FaultsOf("requests/cmd", command), "2136 bytes in all, at most 2047 fit");
}

TEST(Contract, BadJsonIsNamedInOneLine) {
  const struct {
    std::string text;
    const char* problem;
  } kRows[] = {
      {"", "is empty"},
      {" \n", "is empty"},
      {"\xEF\xBB\xBF{}", "begins with a byte-order mark: save it as UTF-8 without one"},
      {std::string("\xFF\xFE{\0}\0", 6), "is UTF-16: save it as UTF-8"},
      {"{\n\"a\": \"\xC3\x28\"}", "is not UTF-8, see line 2"},
      {std::string("{\"a\":\n\n1}\0", 10), "holds a NUL character, see line 3"},
      {"{\"a\": [1,\n{\"b\":", "is cut off: the { of line 2 is never closed"},
      {"{\"a\": \"xy", "is cut off: the \" of line 1 is never closed"},
      {"{\"a\":1} // why", "holds comments, which would be lost: take them out"},
      {"{\"a\":1} {}", "is not JSON: Line 1, Column 9 Extra non-whitespace after JSON value."},
      {"{\"a\":1,}", "is not JSON: Line 1, Column 8 Missing '}' or object member name"},
      {"{\"a\":1,\"a\":2}", "is not JSON: Line 1, Column 8 Duplicate key: 'a'"},
      {std::string(5000, '[') + std::string(5000, ']'), "is not JSON: Exceeded stackLimit in readValue()."},
      {std::string(17 << 20, ' '), "is larger than 16 MiB: is it the right one?"},
  };
  for (const auto& row : kRows) {
    Json::Value document;
    std::string problem;
    EXPECT_FALSE(contract::ParseStrictly(row.text, contract::Comments::kRefused, document, problem)) << row.problem;
    EXPECT_EQ(problem, row.problem);
  }
  Json::Value document;
  std::string problem;
  EXPECT_TRUE(contract::ParseStrictly("{\"a\":1} // why", contract::Comments::kAllowed, document, problem));
}

// Every default in every schema, a document's whole one and those of its members.
void CheckDefaults(const std::string& place, const Json::Value& schema) {
  if (!schema.isObject() && !schema.isArray()) return;
  if (schema.isObject() && schema.isMember("default")) {
    EXPECT_TRUE(contract::FindFaults(schema, schema["default"]).empty()) << place;
    std::string problem;
    EXPECT_TRUE(contract::IsValid(place, schema, schema["default"], problem)) << place << " " << problem;
    for (const std::string& name : contract::Members(schema)) {
      const Json::Value& member = schema["properties"][name];
      const Json::Value& own = member.isMember("default") ? member["default"] : schema["default"][name];
      EXPECT_EQ(own, schema["default"][name]) << place << " " << name;
    }
  }
  for (auto member = schema.begin(); member != schema.end(); ++member) {
    CheckDefaults(place + "/" + member.key().asString(), *member);
  }
}

TEST(Contract, IsWholeAndItsDefaultsAreValid) {
  for (const std::string& name : contract::Names()) {
    const Json::Value& schema = contract::Schema(name);
    EXPECT_TRUE(schema["title"].isString() && schema["description"].isString()) << name;
    CheckDefaults(name, schema);
    for (const contract::Member& member : contract::AllMembers(schema)) {
      EXPECT_TRUE(member.schema["title"].isString()) << name << " " << member.path;
      EXPECT_TRUE(member.schema["description"].isString()) << name << " " << member.path;
      EXPECT_EQ(member.schema["enum"].size(), member.schema["x-enum-titles"].size()) << name << " " << member.path;
    }
  }
}

TEST(Contract, AgreesWithTheDevicesTables) {
  size_t requests = 0;
  for (const bs::Command& command : bs::kCommands) {
    const std::string name(command.name);
    ASSERT_TRUE(contract::Has("requests/" + name) && contract::Has("replies/" + name)) << name;
    const Json::Value& request = contract::Schema("requests/" + name);
    EXPECT_EQ(request["x-topic"].asString(), command.path) << name;
    EXPECT_EQ(request["properties"]["type"]["const"].asString(), name);
    EXPECT_EQ(request["x-document"].asString(), command.document == nullptr ? "" : command.document->key) << name;
    ++requests;
  }
  EXPECT_EQ(contract::Names("requests").size(), requests);
  EXPECT_EQ(contract::Names("replies").size(), requests);

  size_t documents = 0;
  for (const bs::StoredDocument* document : bs::kStoredDocuments) {
    const std::string name = std::string("documents/") + document->key;
    ASSERT_TRUE(contract::Has(name)) << name;
    const Json::Value& schema = contract::Schema(name);
    EXPECT_EQ(schema["x-key-length"].asUInt(), document->key_length) << name;
    for (const Json::Value& when : schema["x-read"]) {
      const bool known = when == "start" || when == "request" || when == "never";
      EXPECT_TRUE(known || contract::Has("messages/" + when.asString())) << name << " " << when.asString();
    }
    Json::Value default_document;
    bs::ParseJson(bs::DefaultDocument(document->default_index), default_document);
    // The event log's default is its component's own.
    const Json::Value none;
    EXPECT_EQ(document == &bs::kControledLog ? none : schema.get("default", none), default_document) << name;
    ++documents;
  }
  EXPECT_GE(contract::Names("documents").size(), documents);

  const Json::Value& states = contract::Schema("parts/space_state")["x-enum-titles"];
  for (int state = 0; state < 4; ++state) EXPECT_EQ(states[state].asString(), words::SpaceStateName(state));

  const Json::Value& statuses = contract::Schema("parts/reply")["properties"];
  Json::ArrayIndex at = 0;
  for (const bs::RequestStatus& status : {bs::kAllDone, bs::kRequestDataError, bs::kRequestNotJson, bs::kErrorType,
                                          bs::kSetError, bs::kExternalControlOff}) {
    EXPECT_EQ(statuses["state"]["enum"][at], status.state);
    EXPECT_EQ(statuses["error_msg"]["enum"][at++], status.error_msg);
  }
}

// The page of messages shows what works, and few things that do not: those are told by the answers that follow.
TEST(Contract, TakesEveryExampleThatWorks) {
  std::string request;
  int refused = 0;
  for (const DocumentExample& example : DocumentExamples("messages.md")) {
    Json::Value document;
    if (!bs::ParseJson(example.text, document) || !document.isObject()) continue;
    const std::string type = document["type"].isString() ? document["type"].asString() : "";
    if (example.kind == "request" || example.kind == "external") {
      const std::string schema = "requests/" + type;
      request = contract::Has(schema) ? FaultsOf(schema, document) : "no such command";
    } else if (example.kind == "reply") {
      const bool done = document["state"] == 200;
      EXPECT_EQ(done ? request : "", "") << example.place;
      refused += done ? 0 : 1;
      const bool known = contract::Has("replies/" + type) && document["state"] != 403;
      EXPECT_EQ(FaultsOf(known ? "replies/" + type : "messages/not_understood", document), "") << example.place;
    } else if (example.kind == "broadcast" || contract::Has("messages/" + type)) {
      EXPECT_EQ(FaultsOf("messages/" + type, document), "") << example.place;
    }
  }
  EXPECT_LT(refused, 14);
}

TEST(Contract, RecordsHaveTheFieldsThatTheyHave) {
  const struct {
    const char* name;
    size_t offset;
    size_t bytes;
  } kFields[] = {
#define FIELD(name) {#name, offsetof(bs::LX_ParkingResult, name), sizeof(bs::LX_ParkingResult::name)}
      FIELD(plate),         FIELD(plate_color), FIELD(plate_type),          FIELD(plate_confidence),
      FIELD(vehicle_color), FIELD(time_stamp),  FIELD(vehicle_color_class), FIELD(head_confidence),
      FIELD(valid),         FIELD(second_flag), FIELD(occupy_line),         FIELD(space_status),
      FIELD(trigger),       FIELD(space_name),  FIELD(extra_text),
#undef FIELD
  };
  const Json::Value& schema = contract::Schema("messages/result");
  EXPECT_EQ(schema["x-bytes"].asUInt(), sizeof(bs::LX_Parking_Result_Param));
  ASSERT_EQ(schema["x-fields"].size(), std::size(kFields));
  for (Json::ArrayIndex i = 0; i < std::size(kFields); ++i) {
    const Json::Value& field = schema["x-fields"][i];
    EXPECT_EQ(field["name"].asString(), kFields[i].name);
    EXPECT_EQ(field["x-offset"].asUInt(), kFields[i].offset) << kFields[i].name;
    EXPECT_EQ(field["x-bytes"].asUInt(), kFields[i].bytes) << kFields[i].name;
  }
}

TEST(Contract, NamesAreFoundAsPeopleTypeThem) {
  EXPECT_EQ(contract::Find("set_dev_pos"), "requests/set_dev_pos");
  EXPECT_EQ(contract::Find("bus_dev_pos"), "documents/bus_dev_pos_value");
  EXPECT_EQ(contract::Find("replies/set_dev_pos"), "replies/set_dev_pos");
  EXPECT_EQ(contract::Find("plan"), "site/plan");
  EXPECT_EQ(contract::Find("set_dev_pso"), "");
  EXPECT_EQ(contract::Printed(contract::Schema("requests/set_dev_pos")).toStyledString().find("x-order"),
            std::string::npos);
  const std::string table = contract::Explain("requests/set_ttyio_cfg");
  EXPECT_LT(table.find("body.ttyionum"), table.find("body.baudrate"));
  EXPECT_LT(table.find("body.baudrate"), table.find("body.checkbit"));
}

}  // namespace
