// The platform's store client against a real store.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>

#include "../real_platform.h"
#include "kvdb.h"
#include "shell.h"

namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

// A store of its own with the device's configuration.
class StoreTest : public testing::Test {
 protected:
  void SetUp() override { Launch(); }
  void TearDown() override {
    Kvdb_Stop();
    Kill();
  }
  void Launch() {
    const fs::path configuration = fs::path(__FILE__).parent_path() / "../../packaging/redis.conf";
    const std::string port = std::to_string(port_);
    server_ = fork();
    if (server_ == 0) {
      dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
      execlp("redis-server", "redis-server", configuration.c_str(), "--port", port.c_str(), "--dir",
             directory_.path.c_str(), nullptr);
      _exit(127);
    }
    const auto start = Clock::now();
    while (RunShellCommand(("redis-cli -p " + port + " ping 2>&1 | grep -q PONG").c_str()) != 0) {
      ASSERT_LT(SecondsSince(start), 10);
      SleepMicroseconds(20000);
    }
  }
  void Kill() {
    kill(server_, SIGKILL);
    waitpid(server_, nullptr, 0);
  }
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

  const uint16_t port_ = FreePort();
  const TemporaryDirectory directory_;
  pid_t server_ = -1;
};

TEST_F(StoreTest, CountsEveryByteAndBacksUp) {
  ASSERT_EQ(Kvdb_Start("127.0.0.1", port_), 1);
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
  Kill();
  Launch();
  EXPECT_EQ(Kvdb_RestoreDatabase(), 1) << "over the restart of the store, at once";
  EXPECT_EQ(Get("key"), "without");
  EXPECT_EQ(Get("later"), "none");

  Kvdb_DeleteKey("key", 3);
  Kvdb_DeleteKey("key\0", 4);
  Kvdb_DeleteKey("empty", 5);
  EXPECT_EQ(Kvdb_BackupDatabase(), 1);
  EXPECT_EQ(Kvdb_RestoreDatabase(), -1) << "the backup of an empty store leaves no old one behind";
}

TEST_F(StoreTest, NeverHoldsItsCallerUp) {
  ASSERT_EQ(Kvdb_Start("127.0.0.1", port_), 1);
  ASSERT_EQ(Set("key", "value"), 1);
  const CapturedErrors errors;
  kill(server_, SIGSTOP);
  auto start = Clock::now();
  EXPECT_EQ(Get("key"), "failed");
  EXPECT_LT(SecondsSince(start), 0.9);
  start = Clock::now();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(Set("key", "lost"), -1);
  EXPECT_LT(SecondsSince(start), 0.1) << "calls soon after a failure do not wait again";
  kill(server_, SIGCONT);
  SleepMicroseconds(1100000);
  EXPECT_EQ(Get("key"), "value");
  const std::string log = errors.Read();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log;
  EXPECT_TRUE(Matches(log, "* 3 platform/linux/store:*\n* 1 platform/linux/store:*\n")) << log;

  ASSERT_EQ(RunShellCommand(("redis-cli -p " + std::to_string(port_) + " set kvdb text >/dev/null").c_str()), 0);
  EXPECT_EQ(Set("key", "refused"), -1);
  EXPECT_EQ(Kvdb_DeleteKey("key", 3), -1);
  Kill();
  start = Clock::now();
  EXPECT_EQ(Get("key"), "failed");
  EXPECT_LT(SecondsSince(start), 0.1);
}

}  // namespace
