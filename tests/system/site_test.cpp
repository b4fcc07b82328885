// A car park as its people use it: the packaged hub with their accounts, a whole device with its relay, and parkctl.
#include <gtest/gtest.h>

#include <fstream>

#include "bringup/device.h"
#include "installed_hub.h"

namespace {

using desk::Loop;
using Milliseconds = Loop::Milliseconds;

constexpr char kGarage[] =
    R"({"site": "garage", "devices": {"ENT": {"name": "Einfahrt", "zone": "ENT", "shows": {"left": ["L1"]}},)"
    R"( "L1-1": {"zone": "L1"}, "L1-2": {"zone": "L1/B"}}})";

class SiteOfPeople : public testing::Test {
 protected:
  struct Row {
    const char* command_line;
    int status;
    std::vector<const char*> printed;
  };

  SiteOfPeople() {
    hub_.Accounts("--site garage planner anna");
    hub_.Accounts("--site garage integrator bert");
    hub_.Accounts("--site garage viewer vera");
    hub_.Accounts("--site garage device L1-1");
    for (const char* account : {"anna", "bert", "vera", "L1-1"}) Write(account, hub_.Password(account) + "\n");
    Write("garage.json", kGarage);
  }

  void Write(const std::string& name, const std::string& text) const { std::ofstream(here_ + "/" + name) << text; }

  // Runs a command line as a person with an account, named by the first word.
  Outcome Run(const std::string& command_line) {
    return Shell("cd " + here_ + "; exec 2>&1; PATH=" BINARY_DIRECTORY ":$PATH PARK_SITE=mqtts://localhost PARK_CA=" +
                 hub_.File("tls/ca.pem") +
                 "; export PATH PARK_SITE PARK_CA; as() { who=$1; shift; "
                 "\"$@\" --user $who --password-file $who; }; " +
                 command_line);
  }

  void Expect(const Row& row) {
    const Outcome outcome = Run(row.command_line);
    EXPECT_EQ(outcome.status, row.status) << row.command_line << "\n" << outcome.output;
    for (const char* part : row.printed) {
      EXPECT_NE(outcome.output.find(part), std::string::npos) << row.command_line << "\nprinted:\n" << outcome.output;
    }
  }

  // Asks again until it is printed: relays and hubs take their time.
  void Await(const std::string& command_line, const std::string& printed) {
    Outcome outcome;
    const bool came = loop_.RunUntil(
        [&] {
          outcome = Run(command_line);
          return outcome.output.find(printed) != std::string::npos;
        },
        Milliseconds(20000));
    EXPECT_TRUE(came) << command_line << "\nprinted:\n" << outcome.output;
  }

  Loop loop_;
  Hub hub_{loop_, "hub", ""};
  const TemporaryDirectory directory_;
  const std::string here_ = directory_.path;
};

TEST_F(SiteOfPeople, PlansGoFromAFileToTheHub) {
  const Row kRows[] = {
      {"parkctl site check garage.json", 0, {"garage: 3 devices in 3 zones, no mistake"}},
      {"sed 's/\"L1\"]/\"L1\",\"L2\",\"L1\"]/' garage.json | parkctl site check -",
       1,
       {"ENT shows.left: L2 holds no device", "ENT shows.left: L1 stands there twice", "2 mistakes"}},
      {"parkctl site check", 3, {"file is required"}},
      {"parkctl site check nowhere.json", 3, {"nowhere.json"}},
      {"printf 'Device;Zone;Left\\nENT;ENT;L1\\nL1-1;L1;\\n' > garage.csv && parkctl site import garage.csv > "
       "made.json && "
       "parkctl site show made.json",
       0,
       {"garage: 2 devices", "ENT  1 device\n    ENT     shows left L1", "L1   1 device, shown by ENT left"}},
      {"parkctl site show garage.json --dot | sed -n '$p'", 0, {"}"}},

      {"as anna parkctl site diff garage.json", 1, {"+ ENT  new", "3 new, 0 changed, 0 not in the file"}},
      {"as vera parkctl site apply garage.json", 1, {"does not let vera write park/garage/plan/ENT (Not authorized)"}},
      {"as anna parkctl site apply garage.json", 0, {"the hub took 3 of 3 plans"}},
      {"as anna parkctl site diff garage.json", 0, {"as the file says"}},
      {"sed 's/, \"L1-2\".*/}}/; s/Einfahrt/Tor/' garage.json > less.json; as anna parkctl site apply less.json",
       0,
       {"~ name: Einfahrt -> Tor", "- L1-2  not in the file", "--remove takes those away", "took 1 of 1 plan"}},
      {"as anna parkctl site apply less.json --remove", 0, {"took 1 of 1 plan"}},
      {"PARK_USER=vera PARK_PASSWORD=$(cat vera) parkctl site status",
       1,
       {"garage, 2 devices: 2 offline", "offline  ENT", "Tor"}},

      {"sed s/garage/other/ garage.json > other.json; as anna parkctl site diff other.json --site "
       "mqtts://localhost/garage",
       3,
       {"the file is of other"}},
      {"PARK_PASSWORD=guess parkctl site status --user vera", 2, {"does not let vera in"}},
      {"parkctl site status", 2, {"does not let nobody"}},
      {"PARK_CA= as vera parkctl site status", 2, {"certificate verify failed"}},
      {"as vera parkctl site status --site mqtts://localhost:8884", 2, {"nobody takes connections there"}},
      {"as vera parkctl site status --site http://localhost", 3, {"is no hub"}},
      {"as bert parkctl request get_dev_pos --device L1-1", 2, {"which site? The hub shows none"}},
      {"as bert parkctl request get_dev_pos --device L1-1 --site mqtts://localhost/garage",
       2,
       {"no relay of L1-1 listens"}},
      {"as bert parkctl request get_dev_pos --site mqtts://localhost/garage", 3, {"--device NAME"}},
  };
  for (const Row& row : kRows) Expect(row);
}

TEST_F(SiteOfPeople, ADeviceJoinsIsSeenIsAskedAndLeaves) {
  desk::Device device(loop_, {here_ + "/device", BINARY_DIRECTORY "/business_server", SOURCE_DIRECTORY "/packaging"});
  MakeFiles(device);
  for (desk::Process* program : {&device.store, &device.broker, &device.daemon}) Launch(device, *program);
  device.relay.Configure({BINARY_DIRECTORY "/park_relay", "--site-password", here_ + "/L1-1"}, here_ + "/device");
  Launch(device.relay);

  Expect({"parkctl relay show", 1, {"belongs to no site"}});
  Expect({"parkctl relay set site=garage", 3, {"broker: missing"}});
  Expect({"parkctl relay set sight=garage", 3, {"NAME=VALUE, with a name of site, device, broker"}});
  Expect({"parkctl relay set site=garage device=L1-1 user=L1-1 broker=mqtts://localhost ca=$PARK_CA",
          0,
          {"+ site: \"garage\"", "goes by it at once"}});
  Expect({"parkctl relay show", 0, {"\"device\": \"L1-1\"", "its hub at mqtts://localhost:8883 answers"}});
  Await("as vera parkctl site status", "no plan  L1-1");
  Expect({"as anna parkctl site apply garage.json", 0, {"took 3 of 3"}});
  Expect({"parkctl result --space 1 --free --space 2 --occupied", 0, {"forwarded"}});
  Await("as vera parkctl site status", "ok       L1-1  L1    1 of 2 free");
  Expect({"as vera parkctl site status --json", 1, {"\"state\": \"ok\"", "\"zones\""}});
  Expect({"as vera parkctl site status --openmetrics",
          1,
          {"park_device_state{site=\"garage\",device=\"L1-1\",park_device_state=\"ok\"} 1\n",
           "park_zone_free_spaces{site=\"garage\",zone=\"L1\"} 1\n", "# EOF\n"}});
  Expect({"timeout 10 parkctl site watch --count 2 --user vera --password-file vera",
          0,
          {"L1-1  L1  1 of 2 free", "L1-1  daemon ok, plan ok"}});

  Expect(
      {"as vera parkctl version --site mqtts://localhost/garage --device L1-1 | grep -c \"$(park_relay --version | cut "
       "-d ' ' -f 2)\"",
       0,
       {"2\n"}});
  Expect({"as vera parkctl version --site mqtts://localhost/garage --device L9", 2, {"is not online at the hub"}});

  const std::string ask = "as bert parkctl request --site mqtts://localhost/garage --device L1-1 ";
  const std::string from_afar = "--site mqtts://localhost/garage --device L1-1";
  Expect({(ask + "get_dev_pos").c_str(), 2, {"403 remote requests are off: \"parkctl relay set remote=read\" on"}});
  Expect(
      {("as bert parkctl config confirm " + from_afar).c_str(), 2, {"403 remote requests are off: \"parkctl relay"}});
  Expect({"parkctl relay set remote=all", 3, {"remote: \"all\" is none of \"off\""}});
  Expect(
      {"parkctl relay set remote=all --force && parkctl relay set remote=read", 0, {"~ remote: \"all\" -> \"read\""}});
  Await(ask + "get_dev_pos", "200 All done");
  Expect({(ask + "get_relay_cfg").c_str(), 0, {"\"device\": \"L1-1\""}});
  Expect({(ask + "set_relay_cfg '{}'").c_str(), 3, {"body.broker: missing"}});
  Expect({(ask + "set_dev_pos '{\"pos\":2}'").c_str(),
          1,
          {"403 not allowed from the site: \"parkctl relay set remote=configure\" on"}});
  Expect({(ask + "cmd '{\"cmdline\":\"true\"}'").c_str(), 1, {"no relay carries cmd, say it on the device itself"}});
  // What no relay carries says so, and what does the like.
  Expect({("parkctl external check_controled_device " + from_afar).c_str(), 3, {"no relay carries external control"}});
  Expect({("parkctl store get bus_dev_pos " + from_afar).c_str(), 3, {"\"parkctl config export --device\""}});
  Expect({("parkctl relay show " + from_afar).c_str(), 3, {"\"parkctl request get_relay_cfg --device\""}});
  Expect({"parkctl result --space 2 --free --trigger 9", 3, {"space 2.trigger: 9 is not a whole number from 0 to 8"}});
  Expect({"parkctl result --space 2 --free --trigger 9 --force", 0, {"forwarded"}});
  // A report from afar holds what its account may see.
  const std::string report = " parkctl report r.tgz --site mqtts://localhost/garage --device L1-1; tar -xzOf r.tgz";
  Expect({("as bert" + report).c_str(), 0, {"bus_dev_pos_value:\n", "\"data\": \"(masked)\"", "health.txt: NOT ALL"}});
  Expect({("as vera" + report).c_str(), 0, {"\"daemon\": \"ok\"", "counts/L1-1/L1:", "documents.txt: NOT ALL OF IT"}});
  device.daemon.Stop();
  Expect({(ask + "get_dev_pos --timeout 9").c_str(), 2, {"504 the device does not answer"}});

  Expect({"parkctl relay leave", 0, {"-> \"\""}});
  Await("as vera parkctl site status", "offline  L1-1  L1\n");
}

}  // namespace
