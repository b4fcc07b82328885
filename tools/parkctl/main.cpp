// parkctl: the device's bus, store and serial bytes from a command line. This file defines the command line only.
#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <iostream>
#include <map>

#include "build_identity/build.h"
#include "command_line.h"
#include "console.h"
#include "contract/schemas.h"
#include "contract_commands.h"
#include "decode_command.h"
#include "lx_logging.h"
#include "protocol/names.h"
#include "report.h"
#include "requests.h"
#include "results.h"
#include "stored_text.h"
#include "version_command.h"
#include "watch.h"

namespace {

using parkctl::Action;
using parkctl::GivenOption;
using parkctl::Ports;
using parkctl::ResultOption;

constexpr char kHidden[] = "";
constexpr char kForceHelp[] = "Send it although the device cannot act on it";
constexpr double kDefaultTimeout = 5;  // seconds; a device check or a serial reconfiguration takes less

std::string Names(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += "\n  " + name;
  return text;
}

void AddRequest(CLI::App& app, Action& action, const Ports& ports, const char* name, const char* message_type,
                const char* help, const std::string& example) {
  auto* command = app.add_subcommand(name, help);
  auto options = std::make_shared<parkctl::RequestOptions>();
  options->timeout_s = kDefaultTimeout;
  options->message_type = message_type;
  command->add_option("command", options->command, "The command's name")->required();
  command->add_option("json", options->body, "Its body: JSON, @file, or - for standard input");
  command->add_option("--timeout", options->timeout_s, "Seconds to wait for the answer")
      ->check(CLI::Range(0.0, 86400.0))
      ->capture_default_str();
  command->add_flag("--raw", options->raw, "Write the reply's bytes as they come");
  command->add_flag("--force", options->force, kForceHelp);
  if (message_type == std::string(businessserver::kBusRequestMessage)) {
    parkctl::AddDeviceOptions(*command, options->device);
  } else {
    parkctl::RefuseSite(*command, "no relay carries external control");
  }
  command->footer("Examples:\n" + example + "\n\nCommands:" + Names(parkctl::CommandNames(message_type)));
  command->callback([options, &action, &ports] {
    options->device.bus_port = ports.bus;
    action = [options] { return parkctl::RunRequest(*options); };
  });
}

// The space options in the order in which they were written.
std::vector<GivenOption> InOrder(const CLI::App& command,
                                 const std::map<const CLI::Option*, const ResultOption*>& rows) {
  std::map<const CLI::Option*, size_t> seen;
  std::vector<GivenOption> given;
  for (const CLI::Option* option : command.parse_order()) {
    const auto row = rows.find(option);
    if (row == rows.end()) continue;
    const bool takes_value = row->second->value != nullptr;
    given.emplace_back(row->second, takes_value ? option->results().at(seen[option]++) : "");
  }
  return given;
}

void AddResult(CLI::App& app, Action& action, const Ports& ports) {
  auto* command = app.add_subcommand("result", "Publish a recognition result for up to three spaces");
  auto options = std::make_shared<parkctl::ResultOptions>();
  std::map<const CLI::Option*, const ResultOption*> rows;
  for (const ResultOption& row : parkctl::kResultOptions) {
    const auto keep = [](const CLI::results_t&) { return true; };  // read by InOrder
    CLI::Option* option =
        row.value == nullptr ? command->add_flag(row.name, row.help) : command->add_option(row.name, keep, row.help);
    if (row.value != nullptr) option->type_name(row.value)->take_all();
    rows[option] = &row;
  }
  command->add_option("--record-text", options->record_text, "The record's own extra text");
  command->add_flag("--change", options->change, "As AVS_PARK_RECT_CHANGE, which the device does not forward");
  command->add_flag("--force", options->force, kForceHelp);
  parkctl::RefuseSite(*command, "results come from its own recognition process. \"parkctl latest --device\" shows one");
  command->footer(
      "Examples:\n"
      "  parkctl result --space 1 --occupied --plate 京A12345 --space 2 --free\n"
      "  parkctl result --space 3 --status alarm --occupy-line 1 --change\n"
      "It then asks the daemon what it shows and what it forwarded.");
  command->callback([command, rows, options, &action, &ports] {
    options->spaces = InOrder(*command, rows);
    options->bus_port = ports.bus;
    action = [options] { return parkctl::SendResult(*options); };
  });
}

void AddPush(CLI::App& app, Action& action, const Ports& ports) {
  auto* command = app.add_subcommand("push", "Publish a neighbouring device's space counts");
  auto options = std::make_shared<parkctl::PushOptions>();
  command->add_option("--from", options->address, "The neighbour's address")->required();
  command->add_option("--total", options->total, "Its spaces")->required();
  command->add_option("--free", options->free, "Its free spaces")->required();
  command->add_option("--position", options->position, "Where it stands: own, left, right or front")
      ->capture_default_str();
  command->add_option("--device", options->devices, "ADDRESS:TOTAL:FREE of a device that it reports for");
  command->add_flag("--force", options->force, kForceHelp);
  parkctl::RefuseSite(*command, "relays bring counts, as \"parkctl site apply\" says", {"--site"});
  command->footer(
      "Example:\n"
      "  parkctl push --from 192.168.1.20 --total 3 --free 2 --position left --device 192.168.1.31:2:1\n"
      "It then asks the daemon what it counts, by position.");
  command->callback([options, &action, &ports] {
    options->bus_port = ports.bus;
    action = [options] { return parkctl::SendPush(*options); };
  });
}

void AddWatch(CLI::App& app, Action& action, const Ports& ports) {
  auto* command = app.add_subcommand("watch", "Show the bus live, one line a message");
  auto options = std::make_shared<parkctl::WatchOptions>();
  command->add_flag("--json", options->json, "One JSON document a line");
  command->add_option("--count", options->count, "End after this many messages");
  parkctl::RefuseSite(*command, "\"parkctl site watch\" shows what the devices of a site say");
  command->footer("Examples:\n  parkctl watch\n  parkctl watch --json | jq -r .words");
  command->callback([options, &action, &ports] {
    options->bus_port = ports.bus;
    options->store_port = ports.store;
    action = [options] { return parkctl::Watch(*options); };
  });
}

void AddLatest(CLI::App& app, Action& action, const Ports& ports) {
  auto* command = app.add_subcommand("latest", "Show the last result that the device forwarded");
  auto options = std::make_shared<parkctl::LatestOptions>();
  options->timeout_s = kDefaultTimeout;
  command->add_flag("--json", options->json, "As JSON");
  command->add_option("--timeout", options->timeout_s, "Seconds to wait for the answer")
      ->check(CLI::Range(0.0, 86400.0))
      ->capture_default_str();
  parkctl::AddDeviceOptions(*command, options->device);
  command->footer("Example:\n  parkctl latest");
  command->callback([options, &action, &ports] {
    options->device.bus_port = ports.bus;
    action = [options] { return parkctl::RunLatest(*options); };
  });
}

void AddDecode(CLI::App& app, Action& action, const Ports& ports) {
  auto* command = app.add_subcommand("decode", "Say what bytes of a serial line mean");
  auto options = std::make_shared<parkctl::DecodeOptions>();
  command->add_option("bytes", options->words, "Hexadecimal bytes, a beacon line, @file, or - for standard input")
      ->required();
  command->add_option("--fields", options->fields, "File with the field list (the device's own without it)");
  parkctl::RefuseSite(*command, "for another's bytes take \"parkctl request get_rs485pro_cfg --device\" as --fields");
  command->footer(
      "Examples:\n"
      "  parkctl decode AA 02 17 03 31 32 33 8F\n"
      "  parkctl decode --fields rs485.json BB88AA0041313233343501020000000300000002503133\n"
      "  parkctl decode DTM:MAJ-0x0065");
  command->callback([options, &action, &ports] {
    options->store_port = ports.store;
    action = [options] { return parkctl::Decode(*options); };
  });
}

void AddContract(CLI::App& app, Action& action) {
  const struct {
    const char* name;
    const char* help;
    const char* example;
    int (*run)(const std::string& name);
  } kRows[] = {
      {"explain", "Say what a command, document or message holds", "  parkctl explain set_ttyio_cfg",
       parkctl::ExplainSchema},
      {"schema", "Print the JSON Schema of a command, document or message",
       "  parkctl schema set_ttyio_cfg\n  parkctl schema replies/get_ttyio_cfg", parkctl::PrintSchema},
  };
  for (const auto& row : kRows) {
    auto* command = app.add_subcommand(row.name, row.help);
    auto name = std::make_shared<std::string>();
    command->add_option("name", *name, "A command, a document or a message; replies/COMMAND for an answer")->required();
    command->footer(std::string("Examples:\n") + row.example);
    command->callback([name, run = row.run, &action] { action = [name, run] { return run(*name); }; });
  }
}

void AddVersion(CLI::App& app, Action& action) {
  auto* command = app.add_subcommand("version", "Say which build of what runs: here, or on a device of a site");
  auto options = std::make_shared<parkctl::VersionOptions>();
  command->add_flag("--json", options->json, "As JSON");
  command->add_option("--run-directory", options->run_directory)->group(kHidden);
  parkctl::AddDeviceOptions(*command, options->device);
  command->footer(
      "Examples:\n"
      "  parkctl version\n"
      "  parkctl version --site mqtts://hub.example/garage --user ann --password-file ann.pw --device L2-B-014");
  command->callback([options, &action] { action = [options] { return parkctl::ShowVersions(*options); }; });
}

void AddReport(CLI::App& app, Action& action, const Ports& ports) {
  auto options = std::make_shared<parkctl::ReportOptions>();
  const auto act = [options, &action, &ports](std::function<int()> run) {
    action = [options, run = std::move(run), &ports] {
      options->device.bus_port = ports.bus;
      options->store_port = ports.store;
      return run();
    };
  };
  auto* report = app.add_subcommand("report", "Put what whoever helps from afar asks for into one archive");
  report->add_option("file", options->file, "The archive (.tar.gz), - for standard output");
  report->add_option("--limit-ms", options->limit_ms)->group(kHidden);
  parkctl::AddDeviceOptions(*report, options->device);
  report->footer(
      "Examples:\n"
      "  parkctl report\n"
      "  ssh camera-14 sudo parkctl report - >camera-14.tar.gz\n"
      "  parkctl report --site mqtts://hub.example/garage --user ann --password-file ann.pw --device L2-B-014\n"
      "It is there within ten seconds, whatever does not answer; README.txt in it says what is missing. As root it "
      "sees "
      "most.");
  report->callback([options, act] { act([options] { return parkctl::MakeReport(*options); }); });

  auto* one = app.add_subcommand("report-part", "")->group(kHidden);
  auto part = std::make_shared<std::string>();
  one->add_option("part", *part)->required();
  parkctl::AddDeviceOptions(*one, options->device);
  one->callback([options, part, act] { act([options, part] { return parkctl::PrintReportPart(*part, *options); }); });
}

// For the shell's completion: the words that can stand at a place.
void AddNames(CLI::App& app, Action& action) {
  auto* command = app.add_subcommand("names", "")->group(kHidden);
  auto kind = std::make_shared<std::string>();
  command->add_option("kind", *kind)->required();
  command->callback([kind, &action] {
    action = [kind] {
      std::vector<std::string> names;
      if (*kind == "request") names = parkctl::CommandNames(businessserver::kBusRequestMessage);
      if (*kind == "external") names = parkctl::CommandNames(businessserver::kBusExtRequestMessage);
      if (*kind == "store") {
        for (const auto* document : businessserver::kStoredDocuments) names.push_back(parkctl::DocumentName(*document));
      }
      if (*kind == "schema") names = contract::Names();
      for (const std::string& name : names) std::cout << name << "\n";
      return static_cast<int>(parkctl::kDone);
    };
  });
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  // The store library logs its troubles; parkctl says them itself.
  const char* const quiet[] = {"parkctl", "-v", "9"};
  InitLxLogging(3, const_cast<char**>(quiet));

  CLI::App app("Talk to a parking guidance device: send commands and results, watch its bus, read its bytes.",
               "parkctl");
  Ports ports;
  Action action;
  app.add_option("--bus-port", ports.bus)->take_last()->group(kHidden);
  app.add_option("--store-port", ports.store)->take_last()->group(kHidden);
  app.require_subcommand(0, 1);  // so that a wrong name is named as what was not expected
  app.fallthrough();
  app.footer(
      "Exit status: 0 done (a request: state 200), 1 another state or undecodable bytes, 2 no answer, 3 misused or not "
      "valid.\n"
      "Every subcommand has its own --help with examples.");
  AddRequest(
      app, action, ports, "request", businessserver::kBusRequestMessage, "Send a configuration command",
      "  parkctl request get_ttyio_cfg > line.json\n"
      "  parkctl request set_ttyio_cfg @line.json\n"
      "  parkctl request set_ctr_mdl '{\"model\":1}' && parkctl request set_dev_led '{\"led\":6}'\n"
      "  parkctl request get_dev_pos --site mqtts://hub.example/garage --user ann --password-file ann.pw --device "
      "L2-B-014");
  AddRequest(app, action, ports, "external", businessserver::kBusExtRequestMessage, "Send an external-control command",
             "  parkctl external check_controled_device      (405 until external control is switched on)\n"
             "  parkctl external external_control_framestatus '{\"ip\":\"192.168.1.9\",\"frame_status\":2}'");
  AddResult(app, action, ports);
  AddWatch(app, action, ports);
  AddPush(app, action, ports);
  AddLatest(app, action, ports);
  AddDecode(app, action, ports);
  parkctl::AddStore(app, action, ports);
  parkctl::AddConfig(app, action, ports);
  AddContract(app, action);
  parkctl::AddSite(app, action);
  parkctl::AddRelay(app, action, ports);
  AddVersion(app, action);
  AddReport(app, action, ports);
  AddNames(app, action);
  app.set_version_flag("--version", build::Line("parkctl"));
  try {
    app.parse(argc, argv);
    if (action) return action();
    std::cerr << app.help();
    return parkctl::kMisused;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? parkctl::kDone : parkctl::kMisused;
  } catch (const parkctl::UserError& error) {
    parkctl::Note(error.what());
    return parkctl::kMisused;
  } catch (const std::exception& error) {
    parkctl::Note(std::string("cannot go on: ") + error.what());
    return parkctl::kMisused;
  }
}
