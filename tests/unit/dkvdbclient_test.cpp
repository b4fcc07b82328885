#include "dkvdb/dkvdbclient.h"

#include <gtest/gtest.h>

#include "fake_platform/fake_platform.h"

namespace dkvdb {
namespace {

TEST(KvdbClient, KeysAndValuesAreCountedBytes) {
  ResetFake();
  KvdbClient client;
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
  KvdbClient client;
  std::string value;
  EXPECT_FALSE(client.InitKvdbClient("127.0.0.1", 5299) || client.SetKey("k", 1, "v", 1) ||
               client.GetKey("k", 1, &value, true) || client.DeleteKey("k", 1) || client.BackupDatabase() ||
               client.RestoreDatabase());
}

}  // namespace
}  // namespace dkvdb
