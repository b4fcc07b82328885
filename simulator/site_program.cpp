#include "site_program.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "bringup/forwarder.h"
#include "protocol/json_text.h"
#include "screen/narrator.h"
#include "single_keys.h"
#include "site/site_runner.h"
#include "site/tree.h"

namespace desk {
namespace {

constexpr int kAllSeen = 0;
constexpr int kNotSeen = 1;
constexpr int kNotStarted = 2;
constexpr int kToolPort = 5288;  // of the machine, for MQTT clients: the hub's
constexpr Loop::Milliseconds kSecond(1000);
constexpr uint32_t kBarWidth = 24;
constexpr int kRowsBelow = 9;

// "L1/A    3 devices   4 of 9 free  ######..........".
std::string ZoneLine(const std::string& zone, const site::ZoneRow& row) {
  const uint32_t spaces = std::max(row.sum.spaces, 1u);
  const size_t taken = static_cast<size_t>(kBarWidth) * (row.sum.spaces - row.sum.free) / spaces;
  char text[128];
  snprintf(text, sizeof text, "  %-14s %12s  %4u of %4u free  ", zone.c_str(),
           site::Counted(row.devices, "device").c_str(), row.sum.free, row.sum.spaces);
  return text + std::string(taken, '#') + std::string(kBarWidth - taken, '.');
}

// The whole screen: zones, then the devices that are not well, as many as fit, and below them the rest.
void DrawTable(const CarPark& park, const std::string& below, int rows) {
  const auto now = site::View::Clock::now();
  const auto devices = park.view().Devices(now);
  std::vector<std::string> lines = {"Car park \"" + park.site().name + "\": " + site::Summary(devices), ""};
  for (const auto& [zone, row] : park.view().Zones(now)) lines.push_back(ZoneLine(zone, row));
  lines.emplace_back();
  for (const auto& device : devices) {
    if (device.state == site::State::kOk) continue;
    lines.push_back("  " + device.device + " (" + device.name + ") is " + site::StateName(device.state));
  }
  const size_t room = static_cast<size_t>(std::max(rows - kRowsBelow, 1));
  if (lines.size() > room) lines.resize(room);
  std::cout << "\033[H\033[J";
  for (const auto& line : lines) std::cout << line << "\n";
  std::cout << "\n" << below << "\nt: what happens; q or Ctrl-C ends everything." << std::flush;
}

std::string HowToPoke(const CarPark& park, const SiteOptions& options) {
  const std::string& first = park.site().devices.begin()->first;
  const std::string port = std::to_string(kToolPort);
  const char* as_owner = getuid() == 0 ? "" : "-U --preserve-credentials ";
  std::string text = "The car park stays up. From another terminal:\n\n";
  if (!options.pages.empty()) text += "  a browser: http://127.0.0.1:" + std::to_string(kPagePort) + "/\n";
  text += "  " + options.programs + "/parkctl site status --site mqtt://127.0.0.1:" + port + "/" + park.site().name +
          "\n  mosquitto_sub -p " + port + " -v -t 'park/#'\n  nsenter " + as_owner + "-n -t " +
          std::to_string(park.Find(first)->daemon_pid()) + " " + options.programs + "/parkctl watch   # on " + first +
          "\n";
  return text;
}

void Stay(CarPark& park, const std::string& poke, const Loop::Condition& interrupted, Narrator& narrator) {
  std::cout << "\n" << poke << std::flush;
  const SingleKeys keys;
  const bool on_terminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
  bool ended = false, table = on_terminal;
  if (on_terminal) {
    park.loop().Watch(STDIN_FILENO, [&] {
      char key = 'q';
      ended = read(STDIN_FILENO, &key, 1) <= 0 || key == 'q';
      table = table != (key == 't');
    });
  }
  while (!ended && !interrupted()) {
    winsize window{};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &window);
    narrator.Mute(table);
    if (table) DrawTable(park, poke, window.ws_row);
    const bool before = table;
    park.loop().RunUntil([&] { return ended || table != before || interrupted(); }, kSecond);
  }
  if (on_terminal) {
    park.loop().Unwatch(STDIN_FILENO);
    std::cout << "\n";
  }
}

bool ReadScripts(const SiteOptions& options, const site::Site& site, std::vector<Script>& scripts) {
  SiteDevices names;
  for (const auto& [name, plan] : site.devices) names.insert(name);
  std::vector<std::string> mistakes;
  for (const auto& file : options.scripts) {
    scripts.emplace_back();
    ReadScript(file, scripts.back(), mistakes, names);
  }
  for (const auto& mistake : mistakes) std::cerr << mistake << "\n";
  return mistakes.empty();
}

std::string Taken(int port) {
  return "port " + std::to_string(port) + " on 127.0.0.1 is taken: is another car park running on this machine?";
}

int Refuse(const std::string& problem) {
  std::cerr << "simulator: " << problem << "\n";
  return kNotStarted;
}

}  // namespace

int RunSite(const SiteOptions& options, const Loop::Condition& interrupted) {
  const std::string directory = std::filesystem::absolute(options.directory);
  CarParkPlan plan{
      directory,     options.programs + "/business_server", options.programs + "/park_relay", options.configuration,
      options.pages, MorningSite(options.devices)};
  for (const auto& program : {plan.daemon, plan.relay}) {
    if (access(program.c_str(), X_OK) != 0) return Refuse("there is no " + program + ": build it first");
  }
  std::vector<Script> scripts;
  if (!ReadScripts(options, plan.site, scripts)) return kNotStarted;
  std::filesystem::create_directories(directory);
  std::ofstream(directory + "/site.json") << businessserver::StyledText(site::SiteDocument(plan.site));

  Loop loop;
  Forwarder page(loop), tools(loop);
  if (!options.pages.empty() && !page.Listen(kPagePort)) return Refuse(Taken(kPagePort));
  if (!tools.Listen(kToolPort)) return Refuse(Taken(kToolPort));
  std::string problem;
  if (!EnterOwnNetwork(problem)) return Refuse(problem);
  page.Lead("127.0.0.1", kPagePort);
  tools.Lead(SiteWires::Address(0), kHubPort);

  CarPark park(loop, std::move(plan));
  Narrator narrator(stdout, isatty(STDOUT_FILENO) != 0);
  park.journal().Listen([&](const Event& event) { narrator.Tell(event); });
  if (!park.Start(problem)) return Refuse(problem);
  std::cout << "\n" << site::TreeText(park.site()) << std::flush;
  SiteRunner runner(park, interrupted);
  for (const auto& script : scripts) {
    if (runner.Run(script, problem)) continue;
    std::cout << std::flush;
    std::cerr << "\n" << problem << "\n";
    return kNotSeen;
  }
  if (!scripts.empty()) std::cout << "\nAll " << runner.expectations_met() << " expectations were seen.\n";
  if (options.stay || scripts.empty()) {
    Stay(park, HowToPoke(park, options), interrupted, narrator);
  }
  narrator.Mute(true);
  return kAllSeen;
}

}  // namespace desk
