// parkctl as a person uses it: each subcommand against the running device, what it prints and its exit status.
#include <gtest/gtest.h>

#include <string>

#include "parkctl_on_desk.h"
#include "protocol/json_text.h"
#include "protocol/stored_documents.h"

namespace {

class Parkctl : public ParkctlOnDesk {};

TEST_F(Parkctl, SaysWhatTheDeviceSays) {
  const Row kRows[] = {
      {"parkctl request get_dev_pos 2>/dev/null", 0, "{\n  \"pos\": 0\n}"},
      {"parkctl request set_dev_pos '{\"pos\":2}'", 0, "200 All done"},
      {"echo '{\"pos\":1}' | parkctl request set_dev_pos - && parkctl request get_dev_pos", 0, "\"pos\": 1"},
      {"echo '{\"pos\":3}' > body && parkctl request set_dev_pos @body && parkctl request get_dev_pos", 0,
       "\"pos\": 3"},
      {"parkctl request set_dev_pos '{\"pos\":'", 3, "the body"},
      {"parkctl request set_dev_pos @no_such_file", 3, "no_such_file"},
      {"parkctl request set_ctr_mdl '{\"model\":2}' --force", 1, "404 set error"},
      {"parkctl request get_dev_pso", 3, "did you mean get_dev_pos?"},
      {"parkctl request get_dev_pso --force", 1, "did you mean get_dev_pos?"},
      {"parkctl request check_controled_device", 3, "parkctl external check_controled_device"},
      {"parkctl request cmd '{\"cmdline\":\"sleep 1\"}' --timeout 0.2", 2, "or busy"},
      {"parkctl request get_latest_ivsresult --raw | wc -c", 0, "968"},
      {"parkctl external check_controled_device", 1, "405 device don`t open external control\n  switch it on"},

      {"parkctl result --space 1 --occupied --plate 京A12345 --name 入口 --time 1700000000", 0, "1 occupied 京A12345"},
      {"parkctl result --space 1 --free --time 1700000001", 0,
       "the daemon shows free, lamp 1 (line 2)\nand forwarded  1 free"},
      {"parkctl result --space 1 --occupied --trigger 1 --time 1700000002 && parkctl result --space 1 --occupied "
       "--trigger 1 "
       "--occupy-line 1 --time 1700000003",
       0, "and did not forward it, as a repeat; its latest is  1 occupied"},
      {"parkctl result --space 1 --occupied --plate 京A12345 --name 入口 --time 1700000000", 0,
       "the daemon shows occupied, lamp 0 (line 1)\nand forwarded  1 occupied 京A12345"},
      {"parkctl result --space 2 --occupied --change", 0, "the daemon shows occupied"},
      {"parkctl latest", 0, "space 1  occupied, 京A12345\n  name     入口"},
      {"parkctl latest --json", 0, "\"plate_confidence\": 95"},
      {"parkctl result --space 2 --free --change && parkctl latest", 0, "space 2  no result"},
      {"parkctl result --space 4 --free", 3, "--space"},
      {"parkctl push --from 192.168.1.20 --total 10 --free 4 --position left --device 192.168.1.31:2:1", 0,
       "192.168.1.20 (left): 4 free of 10; 192.168.1.31: 1 free of 2\nthe daemon counts 5 free of 11: own 1 of 1, left "
       "4 of 10"},
      {"parkctl request get_net_status", 0, "\"l_totles\": 10"},
      {"parkctl push --from 127.0.0.1 --total 1 --free 1", 3, "give a neighbour's address"},

      {"parkctl decode AA 02 17 03 31 32 33 8F", 0, "display 2 shows 123"},
      {"echo AA0217033132338E | parkctl decode -", 1, "check byte is 8E"},
      {"parkctl decode DTM:MAJ-0x0065", 0, "beacon: set major 0x0065 (101)"},
      {"parkctl decode BB 88 01 33", 1, "not decoded"},
      {"echo '[{\"framestatus\":1}]' > list && parkctl decode --fields list 01", 0, "frame framestatus=occupied"},
      {"parkctl request set_rs485pro_cfg '{\"pro_cfg\":[{\"header\":\"C0\"},{\"trigger\":1}]}'", 0, "200"},
      {"parkctl decode C0 08", 0, "frame trigger=8"},
      {"parkctl decode hello", 3, "AA 01 17"},
      {"parkctl schema set_dev_pos", 0, "\"const\": \"set_dev_pos\""},
      {"parkctl explain bus_dev_pos", 0, "one of 0 (own group), 1 (left), 2 (right), 3 (front); default 0"},
      {"parkctl explain set_dev_pso", 3, "did you mean set_dev_pos?"},
      {"parkctl", 3, "--help"},
      {"parkctl version --run-directory .", 0, "business_server  not running as the unit business-server\n"},
      {"mkdir -p business-server && business_server --version >business-server/version && "
       "parkctl version --run-directory . | grep -cF \"$(parkctl --version | cut -d ' ' -f 2-)\"",
       0, "2\n"},
  };
  for (const Row& row : kRows) RunRow(row);
}

// What is not valid reaches neither the device nor the store: a line for each fault, and nothing else.
TEST_F(Parkctl, RefusesWhatTheDeviceCannotActOn) {
  const struct {
    const char* command_line;
    const char* printed;
  } kRows[] = {
      {"parkctl request set_dev_pos '{\"pos\":4}'",
       "body.pos: 4 is none of 0 (own group), 1 (left), 2 (right), 3 (front)\n"},
      {"parkctl request set_dev_pos '{}'",
       "body.pos: missing, one of 0 (own group), 1 (left), 2 (right), 3 (front) is needed\n"},
      {"parkctl request set_bt '{\"major\":65536,\"miner\":1}'",
       "body.major: 65536 is not a whole number from 0 to 65535\n"
       "body.miner: no such member, did you mean minor?\n"},
      {"parkctl external external_control_framestatus '{\"ip\":\"10.0.0.1\",\"frame_status\":4}'",
       "body.frame_status: 4 is none of 0 (free), 1 (occupied), 2 (reserved), 3 (alarm)\n"},
      {"parkctl push --from 10.0.0.2 --total 1 --free 2", "free: 2 is above totle, 1\n"},
      {"parkctl store set bus_dev_pos '{\"pos\":\"left\"}'",
       "pos: \"left\" is none of 0 (own group), 1 (left), 2 (right), 3 (front)\n"},
  };
  for (const auto& row : kRows) {
    const Outcome outcome = Run(row.command_line);
    EXPECT_EQ(outcome.status, 3) << row.command_line;
    EXPECT_EQ(outcome.output, row.printed) << row.command_line;
  }
  RunRow({"parkctl request get_dev_pos", 0, "\"pos\": 0"});
  RunRow({"parkctl request set_dev_pos '{\"pos\":4}' --force", 0, "200"});
  RunRow({"parkctl request get_dev_pos", 0, "\"pos\": 4"});
}

TEST_F(Parkctl, WatchTellsResultsAndBroadcastsAsTheyCome) {
  const uint64_t cars = desk_.loop().Every(Milliseconds(300), [&] { desk_.CarArrives(1, "京A12345"); });
  const Outcome plain = Run("timeout 10 parkctl watch --count 8");
  EXPECT_EQ(plain.status, 0) << plain.output;
  for (const char* part : {"AVS_SIMULATOR_TRIGGER     1 occupied 京A12345", "BUS_BROADCAST_MESSAGE     2 free of 3"}) {
    EXPECT_NE(plain.output.find(part), std::string::npos) << part << "\n" << plain.output;
  }
  const Outcome json = Run("timeout 10 parkctl watch --json --count 4 2>/dev/null");
  desk_.loop().Cancel(cars);
  EXPECT_EQ(json.status, 0);
  EXPECT_NE(json.output.find("\"plate\":\"京A12345\""), std::string::npos) << json.output;
  for (size_t at = 0; at < json.output.size(); at = json.output.find('\n', at) + 1) {
    const std::string line = json.output.substr(at, json.output.find('\n', at) - at);
    Json::Value document;
    EXPECT_TRUE(businessserver::ParseJson(line, document) && document.isMember("words")) << line;
  }
}

TEST_F(Parkctl, StoreCommandsKnowTheKeys) {
  const Row kRows[] = {
      {"parkctl store list", 0, "bus_dev_pos_value             {\"pos\":0}"},
      {"parkctl store get bus_dev_pos", 0, "{\n  \"pos\": 0\n}\n"},
      {"parkctl store get sys_device_name", 1, "nothing is stored under sys_device_name_value"},
      {"parkctl store get ibc", 3, "could be any of:\n  ibc_name_value"},
      {"parkctl store set bus_dev_pos '{\"pos\":1}' --show", 0, "~ pos: 0 -> 1"},
      {"parkctl store set bus_dev_pos 'pos=1'", 3, "the document"},
      {"parkctl store restore", 1, "there is no backup"},
      {"parkctl store backup", 0, "backed up"},
      {"parkctl store set bus_dev_pos '{\"pos\":2}'", 0, "~ pos: 0 -> 2"},
      {"parkctl request get_dev_pos", 0, "\"pos\": 2"},
      {"parkctl store restore && parkctl store get bus_dev_pos", 0, "\"pos\": 0"},
  };
  for (const Row& row : kRows) RunRow(row);

  int number = 0;
  for (const businessserver::StoredDocument* document : businessserver::kStoredDocuments) {
    const std::string body = "{\"number\":" + std::to_string(++number) + "}";
    contract_.Ignore(std::string("documents/") + document->key);
    EXPECT_EQ(Run("parkctl store set " + std::string(document->key) + " --force '" + body + "'").status, 0)
        << document->key;
    std::string stored;
    EXPECT_TRUE(desk_.store_client().Get(std::string(document->key, document->key_length), stored)) << document->key;
    EXPECT_NE(stored.find(std::to_string(number)), std::string::npos) << document->key << ": " << stored;
  }
}

TEST_F(Parkctl, SaysWhatIsOutOfReach) {
  desk_.StopProcess(desk_.daemon());
  RunRow({"parkctl request get_dev_pos --timeout 1", 2, "business_server"});
  // A watcher takes it, but nobody answers for the device.
  RunRow({"parkctl result --space 1 --free", 2, "business_server"});
  RunRow({"parkctl push --from 10.0.0.2 --total 1 --free 1", 2, "business_server"});
  desk_.StopProcess(desk_.broker());
  RunRow({"parkctl latest --timeout 1", 2, "mosquitto"});
  RunRow({"parkctl push --from 10.0.0.2 --total 1 --free 1", 2, "mosquitto"});
  desk_.StopProcess(desk_.store());
  for (const char* what : {"list", "get bus_dev_pos", "set bus_dev_pos '{\"pos\":1}'", "backup", "restore"}) {
    RunRow({("parkctl store " + std::string(what)).c_str(), 2, "redis-server"});
  }
  RunRow({"parkctl decode AA 02 17 03 31 32 33 8F", 0, "by the default field list"});
}

}  // namespace
