// The platform's store client against a real store.
#include <gtest/gtest.h>

#include <algorithm>

#include "../real_platform.h"
#include "kvdb_whole.h"
#include "programs.h"
#include "shell.h"

namespace {

using namespace std::string_literals;

// A store of its own with the device's configuration.
class StoreTest : public testing::Test {
 protected:
  StoreTest() {
    MakeFiles(device_);
    Launch(device_, device_.store);
  }
  ~StoreTest() override { Kvdb_Stop(); }
  static int Set(const std::string& key, const std::string& value) {
    return Kvdb_SetKey(key.data(), static_cast<uint16_t>(key.size()), value.data(),
                       static_cast<uint32_t>(value.size()));
  }
  static std::string Get(const std::string& key) {
    std::string found = "none";
    const auto assign = [](const char*, int, const char* value, int size, void* user) {
      static_cast<std::string*>(user)->assign(value, static_cast<size_t>(size));
    };
    const int result = Kvdb_GetKeyAbsolutely(key.data(), static_cast<uint16_t>(key.size()), assign, &found);
    return result < 0 ? "failed" : found;
  }

  const TemporaryDirectory directory_;
  desk::Loop loop_;
  desk::Device device_{loop_, {directory_.path, "unused", SOURCE_DIRECTORY "/packaging"}};
};

TEST_F(StoreTest, CountsEveryByteAndBacksUp) {
  ASSERT_EQ(Kvdb_Start("127.0.0.1", desk::kStorePort), 1);
  EXPECT_EQ(Kvdb_RestoreDatabase(), -1) << "there is no backup yet";
  EXPECT_EQ(Set("key", "without"), 1);
  EXPECT_EQ(Set("key\0"s, "with\0 and \xFF\r\n\0"s), 1);
  EXPECT_EQ(Set("empty", ""), 1);
  EXPECT_EQ(Get("key"), "without");
  EXPECT_EQ(Get("key\0"s), "with\0 and \xFF\r\n\0"s);
  EXPECT_EQ(Get("empty"), "");
  EXPECT_EQ(Get("ke"), "none");

  EXPECT_EQ(Kvdb_BackupDatabase(), 1);
  EXPECT_EQ(Kvdb_DeleteKey("key", 3), 1);
  EXPECT_EQ(Set("later", "x"), 1);
  EXPECT_EQ(Get("key"), "none");
  device_.store.Kill();
  Launch(device_, device_.store);
  EXPECT_EQ(Kvdb_RestoreDatabase(), 1) << "over the restart of the store, at once";
  EXPECT_EQ(Get("key"), "without");
  EXPECT_EQ(Get("later"), "none");

  // What stands beside is touched by neither; a whole store takes the place of another, or none does.
  EXPECT_EQ(Kvdb_KeepUnreadable("key", 3, "older", 5), 1);
  EXPECT_EQ(Kvdb_KeepUnreadable("key", 3, std::string(20000, 'x').data(), 20000), 1);
  const KvdbDocuments two = {{"a\0"s, ""}, {"key", "with\0 and \xFF"s}};
  KvdbDocuments unreadable, stored;
  EXPECT_EQ(Kvdb_ReplaceAll({}), -1);
  EXPECT_EQ(Kvdb_ReplaceAll(two), 1);
  EXPECT_EQ(Kvdb_ReadAll(KvdbPart::kStore, &stored), 1);
  EXPECT_EQ(stored, two);
  EXPECT_EQ(Kvdb_ReadAll(KvdbPart::kUnreadable, &unreadable), 1);
  EXPECT_EQ(unreadable, (KvdbDocuments{{"key", std::string(16384, 'x')}}));
  EXPECT_EQ(Kvdb_ReplaceAll({{"b", ""}, {"key", std::string(1200000, 'x')}}), -1) << "longer than the store takes";
  ASSERT_EQ(Kvdb_Start("127.0.0.1", desk::kStorePort), 1);
  EXPECT_EQ(Get("a\0"s) + Get("b"), "none");
  Kvdb_DeleteKey("a", 2);

  Kvdb_DeleteKey("key", 3);
  Kvdb_DeleteKey("key\0", 4);
  Kvdb_DeleteKey("empty", 5);
  EXPECT_EQ(Kvdb_BackupDatabase(), 1);
  EXPECT_EQ(Kvdb_RestoreDatabase(), -1) << "the backup of an empty store leaves no old one behind";
}

TEST_F(StoreTest, NeverHoldsItsCallerUp) {
  ASSERT_EQ(Kvdb_Start("127.0.0.1", desk::kStorePort), 1);
  ASSERT_EQ(Set("key", "value"), 1);
  const CapturedErrors errors;
  device_.store.Freeze();
  auto start = Clock::now();
  EXPECT_EQ(Get("key"), "failed");
  EXPECT_LT(SecondsSince(start), 0.9);
  start = Clock::now();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(Set("key", "lost"), -1);
  EXPECT_LT(SecondsSince(start), 0.1) << "calls soon after a failure do not wait again";
  device_.store.Thaw();
  SleepMicroseconds(1100000);
  EXPECT_EQ(Get("key"), "value");
  const std::string log = errors.Read();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log;
  EXPECT_TRUE(Matches(log, "* 3 platform/linux/store:*\n* 2 platform/linux/store:*\n")) << log;

  ASSERT_EQ(RunShellCommand(("redis-cli -p " + std::to_string(desk::kStorePort) + " set kvdb text >/dev/null").c_str()),
            0);
  EXPECT_EQ(Set("key", "refused"), -1);
  EXPECT_EQ(Kvdb_DeleteKey("key", 3), -1);
  device_.store.Kill();
  start = Clock::now();
  EXPECT_EQ(Get("key"), "failed");
  EXPECT_LT(SecondsSince(start), 0.1);
}

}  // namespace
