// A configuration file: what is taken, what is said of the rest, and what has to be set.
#include "config/config_file.h"

#include <gtest/gtest.h>

namespace {

using config::Change;
using config::Configuration;

TEST(ConfigFile, SaysWhatIsWrong) {
  const struct {
    const char* name;
    std::string text;
    std::vector<std::string> faults;  // the beginning of each
  } kRows[] = {
      {"good", R"({"version": 1, "device": "a", "documents": {"bus_dev_pos_value": {"pos": 3}}})", {}},
      {"no documents at all", R"({"version": 1, "documents": {}})", {}},
      {"cut off", R"({"version": 1, "documents": {"bus_dev_pos_value": {"pos)", {"the file is cut off"}},
      {"of a later parkctl", R"({"version": 2, "anything": 1})", {"version: 2 is newer"}},
      {"something else", R"({"site": "garage"})", {"version: is missing"}},
      {"a list", "[1]", {"the file is no JSON object"}},
      {"comments", "{\"version\": 1, /* mine */ \"documents\": {}}", {"the file holds comments"}},
      {"byte-order mark", "\xEF\xBB\xBF{\"version\": 1}", {"the file begins with a byte-order mark"}},
      {"unknown document",
       R"({"version": 1, "documents": {"bus_dev_pos_valeu": {"pos": 1}}})",
       {"documents.bus_dev_pos_valeu: is no document of a configuration, is bus_dev_pos_value meant?"}},
      {"a part of what is to be held",
       R"({"version": 1, "documents": {"sys_blue_tooth_value": {"major": 7}}})",
       {"sys_blue_tooth_value.uuid: missing", "sys_blue_tooth_value.minor: missing"}},
      {"every fault at once",
       R"({"version": 1, "owner": 1, "documents": {
            "bus_dev_pos_value": {"pos": 4},
            "device_ttyio_value": {"ttyionum": 2, "baudrate": 12345, "checkbit": 0, "databit": 8, "stopbit": 1, "x": 1},
            "relay_value": {"broker": "mqtt://hub"}}})",
       {"owner: is no member", "bus_dev_pos_value.pos: 4 ", "device_ttyio_value.baudrate: 12345 ",
        "device_ttyio_value.x: ", "relay_value.site: ", "relay_value.device: "}},
  };
  for (const auto& row : kRows) {
    Configuration configuration;
    const std::vector<std::string> faults = config::ReadFile(row.text, configuration);
    EXPECT_EQ(faults.size(), row.faults.size()) << row.name;
    for (const std::string& expected : row.faults) {
      bool said = false;
      for (const std::string& fault : faults) said = said || fault.compare(0, expected.size(), expected) == 0;
      EXPECT_TRUE(said) << row.name << ": " << expected << "\nsaid: " << (faults.empty() ? "nothing" : faults[0]);
    }
  }
}

TEST(ConfigFile, IsReadAsItWasWrittenAndSetInASafeOrder) {
  Configuration configuration;
  const std::string text = R"({"version": 1, "device": "L2-B-014", "documents": {
      "relay_value": {"broker": "mqtts://hub", "site": "garage", "device": "L2-B-014"},
      "device_ttyio_value": {"ttyionum": 2, "baudrate": 300, "checkbit": 0, "databit": 8, "stopbit": 1},
      "bus_dev_pos_value": {"pos": 1}, "enc_cfg_value": {"level": 0, "data": "cTdXbTRadDJQ", "data_len": 9}}})";
  ASSERT_EQ(config::ReadFile(text, configuration).size(), 0u);
  EXPECT_EQ(config::DeviceNameIn(configuration), "L2-B-014");

  Configuration again;
  EXPECT_EQ(config::ReadFile(config::FileText(configuration), again).size(), 0u);
  EXPECT_EQ(config::FileText(again), config::FileText(configuration));

  // Neither the line's speed nor the way to the hub changes before the rest has been set.
  const std::vector<Change> all = config::Difference({}, configuration);
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[2].part->storing_command, "set_ttyio_cfg");
  EXPECT_EQ(all[3].part->name, "relay_value");

  again.documents[0].value = Json::Value(7);
  const std::vector<Change> one = config::Difference(again, configuration);
  ASSERT_EQ(one.size(), 1u);
  EXPECT_EQ(one[0].before, Json::Value(7));
  EXPECT_TRUE(config::Difference(configuration, configuration).empty());
}

}  // namespace
