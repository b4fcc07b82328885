// "parkctl config" on the running device and through the hub of its site: what is set, read back, taken back, and what
// is said and what comes of it when something on the way is killed.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "parkctl_on_desk.h"
#include "protocol/stored_documents.h"

namespace {

// A device with its relay, and the hub. "before" is what the device has; "after" differs from it in the line's speed
// and the device's position, "third" in its position alone.
class ParkctlConfig : public ParkctlOnDesk {
 protected:
  ParkctlConfig() {
    std::ofstream(directory_ + "/hub.conf")
        << "listener 1883 127.0.0.1\nallow_anonymous true\nuser root\nset_tcp_nodelay true\n";
    hub_.Configure({"mosquitto", "-c", directory_ + "/hub.conf"}, directory_);
    EXPECT_TRUE(desk_.store_client().Set(
        "relay_value", R"({"site": "garage", "device": "D1", "broker": "mqtt://127.0.0.1", "remote": "configure"})"));
    Launch(hub_);
    Launch(desk_.relay());
    Play({{"await parkctl request get_dev_pos $HUB", 0, nullptr},
          {"parkctl config export before && parkctl config check before", 0, "all valid"},
          {"sed 's/: 9600/: 19200/; s/\"pos\" : 0/\"pos\" : 2/' before >after && ! cmp -s before after", 0, nullptr},
          {"sed 's/\"pos\" : 0/\"pos\" : 3/' before >third && ! cmp -s before third", 0, nullptr}});
  }

  // $at says where the device is asked, $HUB always through the hub. "await COMMAND" is until it ends with 0.
  void Play(const std::vector<Row>& rows, const std::string& at = "") {
    const std::string first = "HUB='--site mqtt://127.0.0.1/garage --device D1'; at=\"" + at +
                              "\"; mine=.local/state/parkctl/" +
                              (at.empty() ? "this-device" : "mqtt___127.0.0.1_garage.D1") +
                              "; await() { for i in $(seq 400); do \"$@\" >/dev/null "
                              "2>&1 && return; sleep 0.1; "
                              "done; return 1; }; changed() { redis-cli -p 5299 hkeys kvdb | grep -q change_value; }; "
                              "unchanged() { ! changed; }; ";
    for (const Row& row : rows) {
      const std::string command_line = first + row.command_line;
      RunRow({command_line.c_str(), row.status, row.printed});
    }
  }

  desk::Process hub_{desk_.loop(), "hub"};
};

TEST_F(ParkctlConfig, SetsWhatDiffersAndGoesBack) {
  for (const char* at : {"", "$HUB"}) {
    SCOPED_TRACE(at);
    Play(
        {
            {"parkctl config diff after $at", 1, "device_ttyio_value\n  ~ baudrate: 9600 -> 19200"},
            {"parkctl config apply after $at </dev/null", 3, "nobody can be asked here"},
            {"parkctl config apply after $at --yes", 0, "bus_dev_pos_value: set\ndevice_ttyio_value: set\n"},
            {"parkctl config diff after $at", 0, "nothing differs"},
            {"parkctl request get_ttyio_cfg", 0, "\"baudrate\": 19200"},
            {"parkctl config rollback $at && parkctl config diff before $at", 0, "nothing differs"},
            {"sed 's/: 9600/: 12345/' before >bad; parkctl config apply bad $at --yes", 3,
             "device_ttyio_value.baudrate: 12345 is none of 300"},
            {"sed 's/D1/D2/' before >other; parkctl config apply other $at --yes", 3, "the file is of D2"},
            {"parkctl config diff before $at", 0, "nothing differs"},
            // A run that was killed half way is named, and completed when that is agreed to.
            {"cp after $mine.run.json; "
             "echo '{\"version\": 1, \"documents\": {}}' >none; parkctl config apply none $at </dev/null",
             3, "an earlier run ended half way, 2 of its 13 documents are left to set"},
            {"parkctl config diff before $at", 0, "nothing differs"},
            {"parkctl config apply none $at --yes", 0, "device_ttyio_value: set"},
            {"parkctl config diff after $at; ls $mine.run.json", 2, "nothing differs"},
            {"parkctl config apply before $at --yes", 0, "set"},
            // One thinks at the question while another sets: what was shown is no longer true.
            {"(sleep 1; HOME=$PWD/b parkctl config apply third --yes >&2; sleep 0.2; echo y) | "
             "script -qec \"parkctl config apply after $at --confirm 60\" /dev/null",
             1, "somebody has changed it meanwhile, nothing more is set:\r\n  ~ pos: 0 -> 3"},
            {"parkctl config diff third && parkctl config confirm $at", 1, "no change waits"},
            {"cp after $mine.run.json; flock $mine.lock parkctl config apply before $at --yes", 1,
             "another parkctl changes this device's configuration right now, nothing is set. It is setting:"},
            {"rm $mine.run.json; parkctl config apply before $at --yes", 0, "bus_dev_pos_value: set"},
        },
        at);
  }
  // Through the hub the module itself says who the beacon is.
  Play({{"parkctl config export far $HUB && parkctl config check far", 0, "14 documents, all valid"},
        {"sed 's/FACTORY/FACTURY/' far >other; parkctl config diff other $HUB", 1, "sys_blue_tooth_value\n  ~ uuid"},
        {"parkctl config apply other $HUB --yes --confirm 60 && parkctl config rollback $HUB && "
         "parkctl config diff far $HUB",
         0, "nothing differs"}});
}

TEST_F(ParkctlConfig, KeepsWhatWasLastKnownToBeGood) {
  Play({
      {"parkctl config apply third --yes", 0, "set"},
      // What ended half way, and what set it right, are no state to go back to.
      {"cp after $mine.run.json; parkctl config apply after --yes", 0, "ended half way"},
      {"parkctl config rollback && parkctl config diff before", 0, "nothing differs"},
      // A change that went back has left nothing; one that was kept leaves what was before it.
      {"parkctl config apply third --yes", 0, "set"},
      {"parkctl config apply --confirm after --yes && parkctl config rollback", 0, "set for 90 s"},
      {"parkctl config rollback && parkctl config diff before", 0, "nothing differs"},
      {"parkctl config apply third --yes && parkctl config apply after --confirm=600 --yes", 0, "set for 600 s"},
      {"parkctl config confirm && parkctl config rollback && parkctl config diff third", 0, "nothing differs"},
  });
}

TEST_F(ParkctlConfig, SetsUpAReplacementInOneCommand) {
  desk_.relay().Stop();
  desk_.store_client().Delete("relay_value");
  Play({{"parkctl request set_bt '{\"uuid\":\"0123456789ABCDEF\",\"major\":7,\"minor\":9}'", 0, "200"},
        {"parkctl request set_dev_pos '{\"pos\":2}'", 0, "200"},
        {"parkctl relay set site=garage device=L1-1 user=L1-1 broker=mqtt://127.0.0.1:1", 0, "+ site"},
        {"parkctl config export died.json", 0, "14 documents"}});
  Play({{"parkctl request set_bt '{\"uuid\":\"OUT-OF-ITS-CARTN\",\"major\":1,\"minor\":1}'", 0, "200"}});
  for (const auto& identity :
       {businessserver::kSysBlueTooth, businessserver::kSiteMembership}) {  // as out of the carton
    desk_.store_client().Delete(std::string(identity.key, identity.key_length));
  }
  Play({{"parkctl request set_dev_pos '{\"pos\":0}'", 0, "200"},
        {"parkctl config apply died.json --yes", 0, "left out, for they are who L1-1 is: "},
        {"parkctl config diff died.json", 1, "relay_value\n"},
        {"parkctl config diff died.json | grep -c pos", 1, "0"},
        {"parkctl config apply died.json --replace --yes --confirm 60 && parkctl config rollback", 0, "set for 60 s"},
        {"parkctl request get_bt", 0, "OUT-OF-ITS-CARTN"},
        {"parkctl config apply died.json --replace --yes", 0, "sys_blue_tooth_value: set\n"},
        {"parkctl config diff died.json && parkctl store get relay", 0, "\"device\": \"L1-1\""},
        // One that has a name of its own is somebody else.
        {"parkctl relay set device=L1-2", 0, "L1-2"},
        {"parkctl config apply died.json --yes", 3, "--other-device takes it all the same"},
        {"parkctl config apply died.json --yes --other-device", 0, "nothing differs"},
        {"parkctl config apply died.json --yes --replace", 0, "relay_value: set"}});
}

TEST_F(ParkctlConfig, GoesBackByItselfUnlessConfirmed) {
  for (const char* at : {"", "$HUB"}) {
    SCOPED_TRACE(at);
    const char* const other = *at == '\0' ? "$HUB" : "";
    Play(
        {
            {"parkctl config apply after $at --yes --confirm 2", 0, "set for 2 s"},
            {"parkctl config apply before $at --yes", 1, "a change waits to be confirmed"},
            {"await parkctl config diff before $at && parkctl config diff before", 0, "nothing differs"},
            // Given again it has more time; confirmed it stays.
            {"parkctl config apply after $at --yes --confirm 60", 0, "set for 60 s"},
            {"parkctl config apply after $at --yes --confirm 3600", 0, "set for 3600 s"},
            {"parkctl config confirm $at", 0, "kept"},
            {"parkctl config confirm $at", 1, "no change waits"},
            {"parkctl config diff after $at", 0, "nothing differs"},
            {"parkctl config apply before $at --yes --confirm 600 && parkctl config rollback $at", 0,
             "everything is as it was"},
            {"parkctl config diff after $at", 0, "nothing differs"},
            {"parkctl config apply before $at --yes", 0, "set"},
            // Whoever asked for it is killed at any moment: it goes back, or was never made.
            {"parkctl config apply after $at --yes --confirm 1 >/dev/null & until changed || ! kill -0 $!; do :; done; "
             "kill -9 $! 2>/dev/null; await parkctl config diff before && await unchanged",
             0, nullptr},
            {"parkctl config apply third $at --yes --confirm 600", 0, "set for 600 s"},
        },
        at);
    // Who comes by the other way is told.
    const char* const where = *at == '\0' ? "made on the device itself waits" : "came from the site waits";
    Play({{"parkctl config apply before $at --yes", 1, where},
          {"parkctl config confirm $at", 1, where},
          {"parkctl config rollback $at", 1, where}},
         other);
    Play({{"parkctl config rollback $at", 0, "as it was"}, {"parkctl config diff before", 0, "nothing differs"}}, at);
  }
}

TEST_F(ParkctlConfig, OutlivesWhatIsKilledOnTheWay) {
  // Whoever guards a change: the next one lets it go on. On the device, and at the relay.
  Play({{"parkctl config apply after --yes --confirm 2 && pkill -9 -f 'config [g]uard'; sleep 2.5; "
         "parkctl config apply before --yes; true",
         0, "the process that guards it was killed"},
        {"await parkctl config diff before", 0, nullptr},
        {"parkctl config apply after $HUB --yes --confirm 600 >/dev/null & echo $! >tool; until changed || ! kill -0 "
         "$!; do :; done",
         0, nullptr}});
  desk_.relay().Kill();
  Launch(desk_.relay());
  Play({{"kill -9 $(cat tool) 2>/dev/null; await parkctl config rollback $HUB; await parkctl config diff before", 0,
         nullptr}});

  // The device's broker, between two changes.
  Play({{"parkctl config apply after --yes --confirm 60 && parkctl config rollback", 0, "set for 60 s"}});
  desk_.broker().Kill();
  Launch(desk_.broker());
  Play({{"await parkctl request get_dev_pos && parkctl config apply after --yes --confirm 60", 0, "set for 60 s"},
        {"parkctl config rollback", 0, "everything is as it was"}});

  // The way there is cut while a change waits.
  Play({{"parkctl config apply after $HUB --yes --confirm 2", 0, "set for 2 s"}});
  hub_.Kill();
  Play({{"await parkctl config diff before", 0, nullptr}, {"parkctl config diff before $HUB", 2, "no connection"}});
  Launch(hub_);
  Play({{"await parkctl config diff before $HUB", 0, nullptr}});

  // The device starts again in the middle: it is waited for.
  desk_.daemon().Freeze();
  Play({{"parkctl config apply after --yes >said 2>&1 & await ls $mine.run.json", 0, nullptr}});
  desk_.daemon().Kill();
  Launch(desk_.daemon());
  Play({{"await grep -q 'device_ttyio_value: set' said; cat said", 0, "bus_dev_pos_value: set"},
        {"parkctl config diff after", 0, "nothing differs"}});
  // At any moment: it is done, or the next run says what is left.
  Play({{"parkctl config apply before $HUB --yes >said 2>&1 & until ls $mine.run.json 2>/dev/null; do :; done", 0,
         "run"}},
       "$HUB");
  desk_.daemon().Kill();
  Launch(desk_.daemon());
  Play({{"await grep -qE 'value: set|half way' said; await parkctl config apply before $at --yes", 0, nullptr},
        {"parkctl config diff before", 0, "nothing differs"}},
       "$HUB");

  // The tool itself, half way.
  desk_.daemon().Freeze();
  Play({{"parkctl config apply after --yes >said 2>&1 & await ls $mine.run.json; kill -9 $!", 0, nullptr}});
  desk_.daemon().Kill();
  Launch(desk_.daemon());
  Play({{"await parkctl request get_dev_pos && parkctl config apply third --yes", 0,
         "an earlier run ended half way, 2 of its 2 documents are left to set"},
        {"parkctl config diff third", 0, "nothing differs"}});
}

TEST_F(ParkctlConfig, SetsNothingOfABadFile) {
  const struct {
    const char* made;  // of "before"
    const char* said;
  } kFiles[] = {
      {"head -c 300", "the file is cut off: the { of line"},
      {"sed 's/\"version\" : 1/\"version\" : 2/'", "version: 2 is newer than this parkctl, which reads up to 1"},
      {"sed 's/bus_dev_pos_value/bus_dev_pos_valeu/'", "bus_dev_pos_valeu: is no document of a configuration"},
      {"sed '2i // mine'", "the file holds comments, which would be lost: take them out"},
      {"sed '1s/^/\\xEF\\xBB\\xBF/'", "the file begins with a byte-order mark: save it as UTF-8 without one"},
      {"iconv -t UTF-16", "the file is UTF-16: save it as UTF-8"},
      {"tr e '\\000'", "the file holds a NUL character, see line 2"},
      {"cat - before", "the file is not JSON: Line "},
      {"head -c 0", "the file is empty"},
      {"head -c 64M /dev/zero", "is larger than 16 MiB: is it the right one?"},
      {"sed '/\"baudrate\"/d'", "device_ttyio_value.baudrate: missing, one of 300, "},
  };
  for (const auto& file : kFiles) {
    for (const char* command : {"check", "diff", "apply --yes", "apply --confirm --yes"}) {
      const std::string line = std::string(file.made) + " <before >bad; parkctl config " + command +
                               " bad >said 2>&1; status=$?; cat said; "
                               "[ $(wc -l <said) = 1 ] && exit $status";
      Play({{line.c_str(), 3, file.said}});
    }
  }
  Play({{"parkctl config diff before", 0, "nothing differs"},
        {"parkctl config apply --confirm before --yes", 0, "nothing differs"},
        {"parkctl config apply --confirm", 3, "file is required"},
        {"parkctl config apply before --confirm 3601", 3, "--confirm: '3601' is no number from 1 to 3600"}});
}

TEST_F(ParkctlConfig, IsNotFooledByADeviceThatCannotStore) {
  desk_.store().Stop();
  Play({{"parkctl config apply after --yes", 2, "no store"},
        // Nobody knows whether a change waits there.
        {"parkctl config confirm --site mqtt://127.0.0.1:1/garage --device D1", 2, "no connection to the hub"},
        {"parkctl config rollback --site mqtt://127.0.0.1:1/garage --device D1", 2, "no connection to the hub"}});
}

}  // namespace
