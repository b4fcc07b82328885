#include "kvdblog/kvdb_log.h"

#include <gtest/gtest.h>

#include "fake_platform/fake_platform.h"
#include "protocol/json_text.h"

namespace businessserver {
namespace {

const char kKey[] = "device_controled_log_value";  // stored without its NUL
const char kDefault[] = "\t{\t\t\"log_index\" : 0\t}";

Json::Value Record(int number) {
  Json::Value record;
  record["log_ip"] = "10.0.0." + std::to_string(number);
  return record;
}

// The numbers of the records, in slot order.
std::string Slots(const Json::Value& document) {
  std::string slots;
  for (const Json::Value& record : document["logs"]) slots += record["log_ip"].asString().substr(7) + " ";
  return slots;
}

TEST(KvdbLog, NinthRecordReplacesTheFirst) {
  ResetFake();
  KvdbLog log;
  log.Start(kKey);
  EXPECT_EQ(Fake().store.at(kKey), kDefault);
  for (int i = 1; i <= 9; ++i) EXPECT_EQ(log.AddKvdbLog(Record(i)), 1);
  EXPECT_EQ(Slots(log.QuaryKvdbLog()), "9 2 3 4 5 6 7 8 ");
  EXPECT_EQ(log.QuaryKvdbLog()["log_index"].asInt(), 1);

  KvdbLog after_restart;
  after_restart.Start(kKey);
  EXPECT_EQ(after_restart.QuaryKvdbLog(), log.QuaryKvdbLog());
  EXPECT_EQ(Fake().store.size(), 1u);
}

TEST(KvdbLog, DamagedDocumentsArePutRight) {
  // clang-format off
  const struct { std::string stored, document; bool written; } kRows[] = {
      {"no json", kDefault, true},
      {R"({"log_index":3,)", kDefault, true},
      {"null", kDefault, true},
      {R"({"log_index":2,"logs":"none"})", kDefault, true},
      {R"({"log_index":8,"logs":[1,2]})", R"({"log_index":2,"logs":[1,2]})", true},
      {R"({"log_index":-1})", R"({"log_index":0})", true},
      {R"({"log_index":4000000000,"logs":[1]})", R"({"log_index":1,"logs":[1]})", true},
      {R"({"log_index":"3","logs":[1,2,3,4,5,6,7,8]})", R"({"log_index":0,"logs":[1,2,3,4,5,6,7,8]})", true},
      {R"({"log_index":5,"logs":[1,2,3,4,5,6,7,8,9]})", R"({"log_index":5,"logs":[1,2,3,4,5,6,7,8]})", true},
      {R"({"log_index":7,"logs":[1]})", R"({"log_index":7,"logs":[1]})", false},
      {R"({"logs":[1]})", R"({"logs":[1]})", false},
  };
  // clang-format on
  for (const auto& row : kRows) {
    ResetFake();
    Fake().store[kKey] = row.stored;
    KvdbLog log;
    log.Start(kKey);
    Json::Value expected;
    ASSERT_TRUE(ParseJson(row.document, expected));
    EXPECT_EQ(log.QuaryKvdbLog(), expected) << row.stored;
    EXPECT_EQ(Fake().store[kKey] != row.stored, row.written) << row.stored;
    EXPECT_EQ(log.AddKvdbLog(Record(1)), 1);
    EXPECT_LE(log.QuaryKvdbLog()["logs"].size(), 8u) << row.stored;
  }
}

TEST(KvdbLog, StoreThatIsDownLosesNothing) {
  ResetFake();
  Fake().store[kKey] = R"({"log_index":1,"logs":[{"log_ip":"10.0.0.1"}]})";
  const std::string stored = Fake().store[kKey];
  Fake().store_down = true;
  KvdbLog log;
  log.Start(kKey);
  EXPECT_EQ(StyledText(log.QuaryKvdbLog()), "{\n\t\"log_index\" : 0\n}\n");
  log.AddKvdbLog(Record(2));
  Fake().store_down = false;
  EXPECT_EQ(Fake().store[kKey], stored);
  EXPECT_EQ(log.AddKvdbLog(Record(3)), 1);
  EXPECT_EQ(Slots(log.QuaryKvdbLog()), "1 2 3 ") << "what was made meanwhile joins what was stored";
  EXPECT_EQ(Fake().store[kKey], StyledText(log.QuaryKvdbLog()));
  Fake().store_down = true;
  EXPECT_EQ(log.AddKvdbLog(Record(4)), 1);
  EXPECT_EQ(Slots(log.QuaryKvdbLog()), "1 2 3 4 ");
}

}  // namespace
}  // namespace businessserver
