#include "kvdblog/kvdb_log.h"

#include <gtest/gtest.h>

#include "dkvdb/dkvdbclient.h"
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
    // What is no log at all is kept beside; what was put right is in the log.
    EXPECT_EQ(Fake().unreadable.count(kKey) == 1, row.document == kDefault) << row.stored;
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
  EXPECT_EQ(Slots(log.QuaryKvdbLog()), "1 2 ") << "who asks is shown what was stored";
  EXPECT_EQ(Fake().store[kKey], stored);
  EXPECT_EQ(log.AddKvdbLog(Record(3)), 1);
  EXPECT_EQ(Slots(log.QuaryKvdbLog()), "1 2 3 ") << "what was made meanwhile joins what was stored";
  EXPECT_EQ(Fake().store[kKey], StyledText(log.QuaryKvdbLog()));
  Fake().store_down = true;
  EXPECT_EQ(log.AddKvdbLog(Record(4)), 1);
  log.GetLogFromKvdb();
  Fake().store_down = false;
  log.AddKvdbLog(Record(5));
  EXPECT_EQ(Slots(log.QuaryKvdbLog()), "1 2 3 4 5 ") << "a later refusal has nothing to do with the first load";
}

// The store is back at every possible moment of a load, an event and the write that follows it.
TEST(KvdbLog, IsNeverWrittenOverOneThatWasNotRead) {
  for (int refusals = 0; refusals < 12; ++refusals) {
    ResetFake();
    Fake().store[kKey] = R"({"log_index":1,"logs":[{"log_ip":"10.0.0.1"}]})";
    Fake().store_refusals = refusals;
    KvdbLog log;
    log.Start(kKey);
    for (int i = 2; i <= 4; ++i) {
      log.AddKvdbLog(Record(i));
      EXPECT_NE(Fake().store[kKey].find("10.0.0.1"), std::string::npos) << refusals << " refusals, event " << i;
    }
    Fake().store_refusals = 0;
    log.Flush();
    log.AddKvdbLog(Record(5));
    Json::Value stored;
    ASSERT_TRUE(ParseJson(Fake().store[kKey], stored));
    EXPECT_EQ(Slots(stored), "1 2 3 4 5 ") << refusals << " refusals";
  }
}

TEST(KvdbLog, AFloodIsWrittenAFewTimesAndInShort) {
  ResetFake();
  KvdbLog log;
  log.Start(kKey);
  const int before = Fake().store_writes;
  Json::Value record;
  for (int i = 0; i < 1000; ++i) {
    record["log_ip"] = std::to_string(i) + std::string(1900, 'x');
    EXPECT_EQ(log.AddKvdbLog(record), 1);
    if (i % 100 == 99) log.Flush();
  }
  EXPECT_LE(Fake().store_writes - before, KvdbLog::kMaxWrites + 10);
  EXPECT_LT(Fake().store[kKey].size(), 2400u);
  EXPECT_EQ(Fake().store[kKey], StyledText(log.QuaryKvdbLog())) << "the last of them is written by the flush";

  record["log_ip"] = std::string(254, 'x') + "é";
  log.AddKvdbLog(record);
  EXPECT_EQ(log.QuaryKvdbLog()["logs"][0]["log_ip"].asString(), std::string(254, 'x')) << "not within a character";
  const int writes = Fake().store_writes;
  log.Flush();
  log.Flush();
  log.AddKvdbLog(Record(1));
  EXPECT_EQ(Fake().store_writes - writes, 2) << "after a silence at once again";
}

TEST(KvdbClient, KeysAndValuesAreCountedBytes) {
  ResetFake();
  dkvdb::KvdbClient client;
  ASSERT_TRUE(client.SetKey("key", 4, "value\0more", 11));  // key and value with their NUL counted
  std::string value = "before ";
  EXPECT_TRUE(client.GetKey("key", 4, &value, true));
  EXPECT_EQ(value, std::string("before value\0more\0", 18));
  EXPECT_TRUE(Fake().Logged(1, "GetKeyCallBack : value"));
  EXPECT_FALSE(client.GetKey("key", 3, &value, true)) << "without its NUL it is another key";
  EXPECT_EQ(value.size(), 18u);

  ASSERT_TRUE(client.SetKey("abc" + std::string(65536, 'x'), "v", 1));
  EXPECT_EQ(Fake().store.count("abc"), 1u) << "a key is cut to sixteen bits of length";
}

TEST(KvdbClient, FailuresAreFalse) {
  ResetFake();
  Fake().store_down = true;
  dkvdb::KvdbClient client;
  std::string value;
  EXPECT_FALSE(client.InitKvdbClient("127.0.0.1", 5299) || client.SetKey("k", 1, "v", 1) ||
               client.GetKey("k", 1, &value, true) || client.DeleteKey("k", 1) || client.BackupDatabase() ||
               client.RestoreDatabase());
}

}  // namespace
}  // namespace businessserver
