// The store outside of itself: exported, damaged, brought back; and every file that is not to be brought in.
#include <sys/wait.h>

#include <csignal>
#include <vector>

#include "installed_device.h"
#include "migrations.h"
#include "shell.h"

namespace {

namespace fs = std::filesystem;

constexpr char kParkctl[] = BINARY_DIRECTORY "/parkctl ";

class StoreTransfer : public InstalledDevice {
 protected:
  StoreTransfer() {
    Start(device_.store);
    fs::create_directory(exports_);
    EXPECT_EQ(Store("set bus_dev_pos '{\"pos\": 3}'").status, 0);
    EXPECT_EQ(Store("set relay_value '" + Membership("L2-B-014") + "'").status, 0);
    // Of other processes: text with a NUL in its key, and bytes that are no text.
    EXPECT_EQ(StoreSays("hset kvdb \"$(printf 'sys_device_info_value')\" '{\"parking_num\": 2}'"), "1\n");
    EXPECT_EQ(Shell("printf 'AB\\377\\000\\001' | redis-cli -p 5299 -x hset kvdb AVS_ALG_AREA_PARK").output, "1\n");
  }

  static std::string Membership(const std::string& device) {
    return R"({"site": "garage", "device": ")" + device + R"(", "broker": "mqtt://hub"})";
  }
  static Outcome Store(const std::string& words) { return Shell(kParkctl + ("store " + words)); }
  Outcome ExportDaily() const {
    return Shell("PATH=" BINARY_DIRECTORY ":$PATH " + std::string(kPackaging) + "/store-export " + exports_.string());
  }
  std::string Daily(int number) const { return (exports_ / ("store." + std::to_string(number) + ".json")).string(); }
  // Everything that the store holds.
  static std::string Held() { return Shell(kParkctl + std::string("store export - | grep -v '\"made\"'")).output; }

  const fs::path exports_ = directory_.path / "exports";
};

TEST_F(StoreTransfer, ComesBackAfterTheFilesOfTheStoreAreLost) {
  const std::string held = Held();
  EXPECT_NE(held.find("bus_dev_pos_value\\u0000"), std::string::npos) << held;
  EXPECT_NE(held.find("\"QUL/AAE=\""), std::string::npos) << held;
  for (int day = 0; day < 2; ++day) EXPECT_EQ(ExportDaily().status, 0);
  EXPECT_EQ(fs::status(Daily(1)).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_FALSE(fs::exists(Daily(2))) << "nothing has changed";

  device_.store.Kill();
  const fs::path store = directory_.path / "store";
  fs::remove_all(store / "appendonlydir");
  EXPECT_EQ(Shell(std::string(kPackaging) + "/store-repair " + store.string()).status, 0);
  Start(device_.store);
  EXPECT_EQ(Store("list").output.find("\"pos\""), std::string::npos) << "the store began empty";
  EXPECT_EQ(Store("set bus_dev_pos '{\"pos\": 1}'").status, 0) << "and went on";
  EXPECT_EQ(ExportDaily().status, 0);

  const Outcome shown = Store("import --show " + Daily(2));
  EXPECT_NE(shown.output.find("+ AVS_ALG_AREA_PARK\n"), std::string::npos) << shown.output;
  EXPECT_NE(shown.output.find("~ bus_dev_pos_value\n"), std::string::npos) << shown.output;
  EXPECT_EQ(Store("import " + Daily(2)).status, 0);
  EXPECT_EQ(Held(), held);
  EXPECT_NE(Store("import " + Daily(2)).output.find("as in the file"), std::string::npos);

  // Seven, all of them different; one that is missing is made up for.
  for (int pos = 0; pos < 9; ++pos) {
    if (pos == 8) fs::remove(Daily(3));
    Store("set ibc_name '{\"name\": \"" + std::to_string(pos) + "\"}'");
    EXPECT_EQ(ExportDaily().status, 0);
  }
  const auto left = std::distance(fs::directory_iterator(exports_), fs::directory_iterator());
  EXPECT_EQ(left, 7);
  const struct {
    int number;
    const char* name;
  } kRows[] = {{1, "8"}, {2, "7"}, {3, "6"}, {4, "4"}, {7, "1"}};
  for (const auto& row : kRows) {
    const std::string expected = R"(\"name\" : \")" + std::string(row.name) + R"(\")";
    EXPECT_NE(ReadFile(Daily(row.number)).find(expected), std::string::npos)
        << row.number << ReadFile(Daily(row.number));
  }
}

TEST_F(StoreTransfer, TakesNoFileThatIsNotWholeAndItsOwn) {
  const std::string good = directory_.path / "good", bad = directory_.path / "bad";
  ASSERT_EQ(Store("export " + good).status, 0);
  ASSERT_EQ(Store("set bus_dev_pos '{\"pos\": 0}'").status, 0);
  const std::string held = Held();
  const struct {
    const char* name;
    const char* made;  // how the bad file is made of the good one
    int status;
    const char* said;
  } kRows[] = {
      {"cut in half", "head -c $(($(wc -c <good) / 2)) good >bad", 3, "the file is cut off"},
      {"empty", ": >bad", 3, "the file is empty"},
      {"not there", "rm -f bad", 3, "cannot open"},
      {"of a newer version", "sed 's/\"store_version\" : 1/\"store_version\" : 2/' good >bad", 3,
       "newer than this parkctl"},
      {"of another model", "sed 's/parking-camera/garden-gate/' good >bad", 3, "of another model, \"garden-gate\""},
      {"a value changed", "sed 's/ : 3\\\\n/ : 2\\\\n/' good >bad", 3, "damaged or changed"},
      {"a configuration", "echo '{\"version\": 1, \"documents\": {}}' >bad", 3, "no export of a store"},
      {"no documents", "sed '/\"documents\"/,/^\\t\\],/d' good >bad", 3, "no documents"},
  };
  for (const auto& row : kRows) {
    Shell("cd " + directory_.path.string() + "; " + row.made);
    const Outcome outcome = Store("import " + bad);
    EXPECT_EQ(outcome.status, row.status) << row.name << ": " << outcome.output;
    EXPECT_NE(outcome.output.find(row.said), std::string::npos) << row.name << ": " << outcome.output;
    EXPECT_EQ(Held(), held) << row.name;
  }
}

TEST_F(StoreTransfer, LeavesEverythingAsItIsWhereItCannotGoOn) {
  const std::string file = (directory_.path / "file.json").string();
  ASSERT_EQ(Store("export " + file).status, 0);
  const std::string whole = ReadFile(file);
  // As on a medium without room: what was there stays, and no half of the new one.
  EXPECT_EQ(Store("set ibc_name '{\"name\": \"changed\"}'").status, 0);
  const Outcome full = Shell("trap '' XFSZ; ulimit -f 0; " + (kParkctl + ("store export " + file)));
  EXPECT_NE(full.output.find("cannot write"), std::string::npos) << full.output;
  EXPECT_EQ(ReadFile(file), whole);
  EXPECT_FALSE(fs::exists(file + ".draft"));

  // Another device's, and while a change waits.
  EXPECT_EQ(Store("set relay_value '" + Membership("L2-B-015") + "'").status, 0);
  EXPECT_EQ(Store("import " + file).status, 3);
  StoreSays("hset kvdb config_change_value {}");
  const Outcome waits = Store("import --other-device " + file);
  EXPECT_EQ(waits.status, 1);
  EXPECT_NE(waits.output.find("waits to be confirmed"), std::string::npos) << waits.output;
  StoreSays("hdel kvdb config_change_value");
  EXPECT_EQ(Store("import --other-device " + file).status, 0);

  device_.store.Kill();
  EXPECT_EQ(Store("import " + file).status, 2);
  EXPECT_EQ(ExportDaily().status, 2);
  EXPECT_TRUE(fs::is_empty(exports_));
}

void CountUp(Json::Value& document) { document["pos"] = document["pos"].asInt() + 1; }

TEST_F(StoreTransfer, AMigrationThatIsKilledIsDoneWholeOrNotAtAll) {
  const parkctl::Migrations migrations = {{&businessserver::kDevPos, CountUp}, {&businessserver::kDevPos, CountUp}};
  const std::string file = (directory_.path / "file.json").string();
  ASSERT_EQ(Store("export " + file).status, 0);
  const auto pos = [] { return Store("get bus_dev_pos | tr -cd 0-9").output; };
  const auto form = [] { return StoreSays("hget kvdb store_form_value"); };
  int killed = 0;
  for (int delay = 0; delay < 20; ++delay) {
    ASSERT_EQ(Store("import " + file).status, 0);
    const pid_t migration = fork();
    if (migration == 0) _exit(parkctl::MigrateStore(migrations, desk::kStorePort));
    SleepMicroseconds(static_cast<unsigned>(delay) * 300);
    kill(migration, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(migration, &status, 0), migration);
    killed += WIFSIGNALED(status) ? 1 : 0;
    const bool untouched = form() == "\n";
    EXPECT_EQ(pos(), untouched ? "3" : "5") << delay;
    for (int more = 0; more < 2; ++more) EXPECT_EQ(parkctl::MigrateStore(migrations, desk::kStorePort), 0) << delay;
    EXPECT_EQ(pos() + form(), "52\n") << delay;
  }
  EXPECT_GT(killed, 0);
  // This version knows none of these two, and leaves them alone.
  const Outcome refused = Store("migrate");
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("later version"), std::string::npos) << refused.output;
  ASSERT_EQ(Store("export " + file).status, 0);
  EXPECT_EQ(Store("import " + file).status, 3);
  EXPECT_EQ(pos() + form(), "52\n");
}

// A device that was upgraded finds every document as the release before stored it. No form has changed yet; a change of
// one is a migration, and what this test asks for is the form that it becomes.
TEST_F(StoreTransfer, TheStoresOfAllReleasesAreUnderstood) {
  Start(device_.broker);
  int releases = 0;
  for (const auto& release : fs::directory_iterator(SOURCE_DIRECTORY "/tests/releases")) {
    SCOPED_TRACE(release.path());
    ++releases;
    ASSERT_EQ(Store("import " + (release.path() / "store.json").string()).status, 0);
    const std::string held = Held();
    Start(device_.daemon);
    // The last thing that it reads at its start is behind it when it answers.
    const Outcome line = Shell(kParkctl + std::string("request get_ttyio_cfg"));
    EXPECT_NE(line.output.find("19200"), std::string::npos) << line.output;
    const Outcome colours = Shell(kParkctl + std::string("request get_parking_color_cfg"));
    EXPECT_NE(colours.output.find("\"externalcontrol_enable\": 1"), std::string::npos) << colours.output;
    EXPECT_EQ(Shell(kParkctl + std::string("request set_ctr_mdl '{\"model\":1}'")).status, 0) << "as it was";
    EXPECT_EQ(Held(), held);
    EXPECT_EQ(StoreSays("exists kvdb:unreadable"), "0\n");
    device_.daemon.Kill();
  }
  EXPECT_GT(releases, 0);
}

}  // namespace
