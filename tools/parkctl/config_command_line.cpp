// The words of "parkctl config".
#include <CLI/CLI.hpp>
#include <memory>

#include "bus_account.h"
#include "change_guard_service.h"
#include "command_line.h"
#include "config_commands.h"
#include "console.h"

namespace parkctl {

namespace {

constexpr int kUsualConfirmSeconds = 90;
constexpr int kMostConfirmSeconds = 3600;

// "--confirm camera.json": what is no number is the file.
void ReadConfirm(const std::string& confirm, ConfigOptions& options) {
  const bool is_file = options.file.empty() && confirm.find_first_not_of("0123456789") != std::string::npos;
  if (is_file) options.file = confirm;
  if (options.file.empty()) throw UserError("file is required");
  if (confirm.empty()) return;
  options.confirm_s =
      is_file ? kUsualConfirmSeconds : static_cast<int>(ParseNumber(confirm, 1, kMostConfirmSeconds, "--confirm"));
}

}  // namespace

void AddConfig(CLI::App& app, Action& action, const Ports& ports) {
  auto* config = app.add_subcommand("config", "A device's configuration as one file: export, check, apply, take back");
  config->require_subcommand(0, 1);
  config->footer(
      "Examples:\n"
      "  parkctl config export camera.json\n"
      "  parkctl config apply camera.json --confirm 60 && parkctl config confirm\n"
      "Exit status: 0 equal or done, 1 different or refused by the device, 2 no answer, 3 not valid or misused.");
  config->callback([config, &action] {
    if (action) return;
    action = [config] {
      std::cerr << config->help();
      return static_cast<int>(kMisused);
    };
  });
  const struct {
    const char* name;
    const char* help;
    const char* example;
    int (*run)(const ConfigOptions& options);
    bool takes_file, asks_device, sets;
  } kRows[] = {
      {"export", "Write the device's configuration to a file", "  parkctl config export camera.json",
       ExportConfiguration, true, true, false},
      {"check", "Say what is wrong with a configuration file", "  parkctl config check camera.json", CheckConfiguration,
       true, false, false},
      {"diff", "Show what differs between a file and the device", "  parkctl config diff camera.json", ShowDifference,
       true, true, false},
      {"apply", "Set what differs, and read it back",
       "  parkctl config apply camera.json\n  parkctl config apply camera.json --confirm 60 --yes\n"
       "  parkctl config apply camera.json --replace --yes\n"
       "With --confirm the beacon's identity goes back too; where its module does not say who it is, that is refused.",
       ApplyConfiguration, true, true, true},
      {"confirm", "Keep a change that would go back by itself", "  parkctl config confirm", ConfirmConfiguration, false,
       true, false},
      {"rollback", "Set what was there before", "  parkctl config rollback", RollBackConfiguration, false, true, false},
  };
  for (const auto& row : kRows) {
    auto* command = config->add_subcommand(row.name, row.help);
    auto options = std::make_shared<ConfigOptions>();
    if (row.takes_file) {
      auto* file = command->add_option("file", options->file, "The file, - for standard input or output");
      if (row.run != ExportConfiguration && !row.sets) file->required();
    }
    if (row.asks_device) {
      AddDeviceOptions(*command, options->device.device);
    } else {
      RefuseSite(*command, "a file is checked without any: leave it out");
    }
    auto confirm = std::make_shared<std::string>();
    if (row.sets) {
      command
          ->add_option(
              "--confirm", *confirm,
              "Everything goes back these seconds (90) after the last setting unless \"parkctl config confirm\" comes")
          ->expected(0, 1)
          ->type_name("SECONDS")
          ->default_str(std::to_string(kUsualConfirmSeconds));
      command->add_flag("--yes", options->yes, "Ask nobody");
      command->add_flag("--other-device", options->other_device, "Also where the file is of another device");
      command->add_flag("--replace", options->replace,
                        "Take the place of the file's device: its beacon's identity and its place in the site too");
    }
    command->footer(std::string("Examples:\n") + row.example);
    command->callback([options, confirm, run = row.run, sets = row.sets, &action, &ports] {
      action = [options, confirm, run, sets, &ports] {
        if (sets) ReadConfirm(*confirm, *options);
        options->device.device.bus_port = ports.bus;
        options->device.store_port = ports.store;
        return run(*options);
      };
    });
  }
  auto* guard = config->add_subcommand("guard", "Be the process that sets changes back which nobody confirms");
  auto once = std::make_shared<bool>(false);
  guard->add_flag("--once", *once, "End when no change waits any more");
  guard->footer("Example:\n  parkctl config guard");
  guard->callback([once, &action, &ports] {
    action = [once, &ports] {
      ConfigDeviceOptions options;
      options.device.bus_port = ports.bus;
      options.device.role = platform::kConfigGuardRole;
      options.store_port = ports.store;
      return RunChangeGuard(options, *once);
    };
  });
}

}  // namespace parkctl
