// "parkctl config" on the running device: what is set, read back, taken back, and what is said when that goes wrong.
#include <gtest/gtest.h>

#include <vector>

#include "parkctl_on_desk.h"
#include "protocol/stored_documents.h"

namespace {

class ParkctlConfig : public ParkctlOnDesk {
 protected:
  void RunAll(const std::vector<Row>& rows) {
    for (const Row& row : rows) RunRow(row);
  }
  // "before" is what the device has, "after" differs in the line's speed and the device's position.
  void MakeFiles() {
    RunAll(
        {{"parkctl config export before && parkctl config check before", 0, "all valid"},
         {"sed 's/: 9600/: 19200/; s/\"pos\" : 0/\"pos\" : 2/' before >after && ! cmp -s before after", 0, nullptr}});
  }
};

TEST_F(ParkctlConfig, SetsWhatDiffersAndGoesBack) {
  MakeFiles();
  RunAll({
      {"parkctl config diff after", 1, "device_ttyio_value\n  ~ baudrate: 9600 -> 19200"},
      {"parkctl config apply after </dev/null", 3, "nobody can be asked here"},
      {"parkctl config apply after --yes", 0, "bus_dev_pos_value: set\ndevice_ttyio_value: set\n"},
      {"parkctl config diff after", 0, "nothing differs"},
      {"parkctl request get_ttyio_cfg", 0, "\"baudrate\": 19200"},
      {"parkctl config rollback && parkctl config diff before", 0, "nothing differs"},
      {"sed 's/: 9600/: 12345/' before >bad; parkctl config apply bad --yes", 3,
       "device_ttyio_value.baudrate: 12345 is none of 300"},
      {"parkctl config diff before", 0, "nothing differs"},
      // A run that was killed half way is completed by the next.
      {"cp after .local/state/parkctl/this-device.run.json; parkctl config apply before --yes", 0,
       "an earlier run ended half way, 2 of its 12 documents are left to set"},
      {"parkctl config diff before; ls .local/state/parkctl/this-device.run.json", 2, "nothing differs"},
      {"flock .local/state/parkctl/this-device.lock parkctl config apply after --yes", 3, "another parkctl sets"},
      {"parkctl store set bus_dev_pos '{\"pos\": 3}' && parkctl config diff before", 1, "~ pos: 3 -> 0"},
      // One thinks at the question while another sets: what was shown is no longer true, with and without a guard.
      {"(sleep 1; parkctl store set bus_dev_pos '{\"pos\": 1}' >&2; sleep 0.5; echo y) | "
       "script -qec 'parkctl config apply after --confirm 60' /dev/null",
       1, "somebody has changed it meanwhile"},
      {"parkctl request get_dev_pos && parkctl config confirm", 1, "\"pos\": 1"},
  });
}

TEST_F(ParkctlConfig, SetsUpAReplacementInOneCommand) {
  RunAll({{"parkctl request set_bt '{\"uuid\":\"0123456789ABCDEF\",\"major\":7,\"minor\":9}'", 0, "200"},
          {"parkctl request set_dev_pos '{\"pos\":2}'", 0, "200"},
          {"parkctl relay set site=garage device=L1-1 user=L1-1 broker=mqtt://127.0.0.1:1", 0, "+ site"},
          {"parkctl config export died.json", 0, "14 documents"}});
  for (const auto& identity :
       {businessserver::kSysBlueTooth, businessserver::kSiteMembership}) {  // as out of the carton
    desk_.store_client().Delete(std::string(identity.key, identity.key_length));
  }
  RunAll({{"parkctl request set_dev_pos '{\"pos\":0}'", 0, "200"},
          {"parkctl config apply died.json --yes", 0, "left out, for they are who L1-1 is: "},
          {"parkctl config diff died.json", 1, "relay_value\n"},
          {"parkctl config diff died.json | grep -c pos", 1, "0"},
          {"parkctl config apply died.json --replace --yes", 0, "sys_blue_tooth_value: set\n"},
          {"parkctl config diff died.json && parkctl store get relay", 0, "\"device\": \"L1-1\""},
          // One that has a name of its own is somebody else.
          {"parkctl relay set device=L1-2", 0, "L1-2"},
          {"parkctl config apply died.json --yes", 3, "--other-device takes it all the same"},
          {"parkctl config apply died.json --yes --other-device", 0, "nothing differs"},
          {"parkctl config apply died.json --yes --replace", 0, "relay_value: set"}});
}

TEST_F(ParkctlConfig, GoesBackByItselfUnlessConfirmed) {
  MakeFiles();
  RunAll({
      {"parkctl config apply after --yes --confirm 3", 0, "set for 3 s"},
      {"parkctl config apply before --yes", 1, "a change waits to be confirmed"},
      {"for i in $(seq 150); do parkctl config diff before && exit 0; sleep 0.1; done; exit 1", 0, "nothing differs"},
      // Given again it has more time; confirmed it stays.
      {"parkctl config apply after --yes --confirm 60", 0, "set for 60 s"},
      {"parkctl config apply after --yes --confirm 3600", 0, "set for 3600 s"},
      {"parkctl config confirm", 0, "kept"},
      {"parkctl config confirm", 1, "no change waits"},
      {"parkctl config diff after", 0, "nothing differs"},
      {"parkctl config apply before --yes --confirm 600 && parkctl config rollback", 0, "everything is as it was"},
      {"parkctl config diff after", 0, "nothing differs"},
      // Whoever guards the change is killed: the next that comes by lets it go on.
      {"parkctl config apply before --yes --confirm 2 && pkill -9 -f 'config [g]uard'; sleep 2.5; "
       "parkctl config apply after --yes; true",
       0, "the process that guards it was killed"},
      {"for i in $(seq 150); do parkctl config diff after && exit 0; sleep 0.1; done; exit 1", 0, "nothing differs"},
  });
}

TEST_F(ParkctlConfig, IsNotFooledByADeviceThatCannotStore) {
  MakeFiles();
  desk_.store().Stop();
  RunAll({{"parkctl config apply after --yes", 2, "no store"},
          // Nobody knows whether a change waits there.
          {"parkctl config confirm --site mqtt://127.0.0.1:1/garage --device D1", 2, "no connection to the hub"},
          {"parkctl config rollback --site mqtt://127.0.0.1:1/garage --device D1", 2, "no connection to the hub"}});
}

}  // namespace
