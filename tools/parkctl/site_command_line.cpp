// The words of "parkctl site" and "parkctl relay", and the options that name a site.
#include <CLI/CLI.hpp>
#include <iostream>

#include "command_line.h"
#include "console.h"
#include "relay_commands.h"
#include "site_commands.h"
#include "site_status.h"

namespace parkctl {

void AddSiteOptions(CLI::App& command, SiteOptions& options) {
  command.add_option("--site", options.address, "The site's hub: mqtts://HOST[:PORT][/SITE] (PARK_SITE)");
  command.add_option("--user", options.user, "Account on the hub (PARK_USER); its password is in PARK_PASSWORD");
  command.add_option("--password-file", options.password_file, "File whose first line is the password");
  command.add_option("--ca", options.ca, "File with the authorities that may vouch for the hub (PARK_CA)");
}

void AddDeviceOptions(CLI::App& command, DeviceOptions& options) {
  command.add_option("--device", options.device, "A device of the site, through its relay");
  AddSiteOptions(command, options.site);
}

void RefuseSite(CLI::App& command, const char* instead, const std::vector<const char*>& options) {
  const std::string name = command.get_name();
  for (const char* option : options) {
    const auto refuse = [=](const std::string&) {
      throw UserError(std::string(option) + ": \"" + name + "\" asks no other device; " + instead);
    };
    command.add_option_function<std::string>(option, refuse)->group("");
  }
}

namespace {

// A command of commands: alone it prints its help.
CLI::App* AddGroup(CLI::App& app, Action& action, const char* name, const char* help, const char* footer) {
  auto* group = app.add_subcommand(name, help);
  group->require_subcommand(0, 1);
  group->footer(footer);
  group->callback([group, &action] {
    if (action) return;
    action = [group] {
      std::cerr << group->help();
      return static_cast<int>(kMisused);
    };
  });
  return group;
}

constexpr char kSetFromAfar[] = "\"parkctl config apply --confirm --device\" sets another's document";
constexpr char kFileHelp[] = "The site file, or - for standard input";

void AddFiles(CLI::App& site, Action& action) {
  auto file = std::make_shared<std::string>();
  auto name = std::make_shared<std::string>();
  auto dot = std::make_shared<bool>(false);

  auto* check = site.add_subcommand("check", "Say every mistake of a site file");
  check->add_option("file", *file, kFileHelp)->required();
  check->footer("Example:\n  parkctl site check garage.json");
  check->callback([=, &action] { action = [=] { return CheckSiteFile(*file); }; });

  auto* show = site.add_subcommand("show", "Show the tree of zones and who shows what");
  show->add_option("file", *file, kFileHelp)->required();
  show->add_flag("--dot", *dot, "As a graph for graphviz");
  show->footer(
      "Examples:\n  parkctl site show garage.json\n  parkctl site show garage.json --dot | dot -Tsvg > garage.svg");
  show->callback([=, &action] { action = [=] { return ShowSiteFile(*file, *dot); }; });

  auto* import = site.add_subcommand("import", "Make a site file of a spreadsheet saved as CSV");
  import
      ->add_option("file", *file,
                   "Columns device, name, zone, left, right, front, group; several zones in a cell "
                   "with blanks between them")
      ->required();
  import->add_option("--name", *name, "The site's name (the file's without it)");
  import->footer("Example:\n  parkctl site import garage.csv > garage.json");
  import->callback([=, &action] { action = [=] { return ImportSiteFile(*file, *name);
};
}  // namespace
);
}  // namespace parkctl

void AddApply(CLI::App& site, Action& action, bool only_differ) {
  auto options = std::make_shared<ApplyOptions>();
  options->only_differ = only_differ;
  auto* command = only_differ ? site.add_subcommand("diff", "Say how a hub's plans differ from a site file")
                              : site.add_subcommand("apply", "Give a hub the plans of a site file");
  command->add_option("file", options->file, kFileHelp)->required();
  if (!only_differ) {
    command->add_flag("--remove", options->remove, "Take away the plans of devices that are not in the file");
    command->add_flag("--yes", options->yes, "Do not ask on a terminal");
  }
  AddSiteOptions(*command, options->site);
  command->footer(only_differ
                      ? "Example:\n  parkctl site diff garage.json --site mqtts://hub.example --user planner"
                      : "Examples:\n  parkctl site apply garage.json --site mqtts://hub.example --user planner\n"
                        "  parkctl site apply garage.json --site mqtt://127.0.0.1 --remove --yes");
  command->callback([=, &action] { action = [=] { return ApplySiteFile(*options); }; });
}

void AddStatus(CLI::App& site, Action& action) {
  auto options = std::make_shared<StatusOptions>();
  auto* status = site.add_subcommand("status", "Say how every device is, what is wrong first, and what is free where");
  status->add_flag("--watch", options->watch, "Go on until interrupted");
  auto* json = status->add_flag_callback(
      "--json", [=] { options->form = StatusForm::kJson; }, "As JSON");
  status
      ->add_flag_callback(
          "--openmetrics", [=] { options->form = StatusForm::kOpenMetrics; }, "For a scraper")
      ->excludes(json);
  AddSiteOptions(*status, options->site);
  status->footer(
      "Examples:\n  parkctl site status --site mqtts://hub.example/garage --user viewer --password-file viewer.pw\n"
      "  parkctl site status --site mqtt://127.0.0.1 --watch\n"
      "Exit status: 0 every device is ok, 1 one is not.");
  status->callback([=, &action] {
    if (options->watch && options->form == StatusForm::kOpenMetrics) {
      throw UserError("--openmetrics is for one look, not for --watch");
    }
    action = [=] { return SiteStatus(*options); };
  });

  auto watching = std::make_shared<SiteWatchOptions>();
  auto* watch = site.add_subcommand("watch", "Show counts and healths as they come");
  watch->add_flag("--json", watching->json, "One JSON document a line");
  watch->add_option("--count", watching->count, "End after this many messages");
  AddSiteOptions(*watch, watching->site);
  watch->footer("Example:\n  parkctl site watch --site mqtt://127.0.0.1/garage --json | jq -r .device");
  watch->callback([=, &action] { action = [=] { return SiteWatch(*watching); }; });
}

}  // namespace

void AddSite(CLI::App& app, Action& action) {
  auto* site = AddGroup(app, action, "site", "Plan a car park and look after it",
                        "Examples:\n"
                        "  parkctl site import garage.csv > garage.json\n"
                        "  parkctl site check garage.json\n"
                        "  parkctl site apply garage.json --site mqtts://hub.example --user planner\n"
                        "  parkctl site status --site mqtts://hub.example/garage\n"
                        "The environment may hold PARK_SITE, PARK_USER, PARK_PASSWORD and PARK_CA.\n"
                        "Exit status: 0 good, 1 mistakes, different or not ok, 2 no answer, 3 misused.");
  AddFiles(*site, action);
  AddApply(*site, action, true);
  AddApply(*site, action, false);
  AddStatus(*site, action);
}

void AddRelay(CLI::App& app, Action& action, const Ports& ports) {
  auto* relay = AddGroup(app, action, "relay", "Say which site this device belongs to",
                         "Examples:\n"
                         "  parkctl relay show\n"
                         "  parkctl relay set site=garage device=L2-B-014 broker=mqtts://hub.example\n"
                         "  parkctl relay set remote=read\n"
                         "  parkctl relay leave");
  auto* show = relay->add_subcommand("show", "What the relay goes by, and whether its hub answers");
  RefuseSite(*show, "\"parkctl request get_relay_cfg --device\" shows another's document");
  show->footer("Example:\n  parkctl relay show");
  show->callback([&action, &ports] { action = [&ports] { return ShowRelay(ports.store); }; });

  auto members = std::make_shared<std::vector<std::string>>();
  auto* set = relay->add_subcommand("set", "Change what the relay goes by");
  set->add_option("members", *members,
                  "NAME=VALUE of site, device, broker, user, ca, remote; an empty value takes it away")
      ->required();
  auto force = std::make_shared<bool>(false);
  set->add_flag("--force", *force, "Store it although the relay cannot act on it");
  RefuseSite(*set, kSetFromAfar);
  set->footer("Example:\n  parkctl relay set site=garage device=L2-B-014 broker=mqtts://hub.example remote=off");
  set->callback(
      [=, &action, &ports] { action = [=, &ports] { return SetRelay(ports.store, ports.bus, *members, *force); }; });

  auto* leave = relay->add_subcommand("leave", "Leave the site");
  RefuseSite(*leave, kSetFromAfar);
  leave->footer("Example:\n  parkctl relay leave");
  leave->callback([&action, &ports] { action = [&ports] { return LeaveSite(ports.store, ports.bus); }; });
}

}  // namespace parkctl
