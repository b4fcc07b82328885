// The words of "parkctl store".
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "command_line.h"
#include "console.h"
#include "store_commands.h"
#include "store_transfer.h"

namespace parkctl {

namespace {

constexpr char kFromAfar[] = "\"parkctl config export --device\" and \"config apply --device\" are for another's";

void AddStoreDocument(CLI::App& store, Action& action, const Ports& ports) {
  auto name = std::make_shared<std::string>();
  auto options = std::make_shared<SetOptions>();
  constexpr char kNameHelp[] = "The document's name, or a part that no other has";

  auto* get = store.add_subcommand("get", "One document");
  get->add_option("name", *name, kNameHelp)->required();
  RefuseSite(*get, kFromAfar);
  get->footer("Example:\n  parkctl store get rs485pro > rs485.json");
  get->callback([=, &action, &ports] { action = [=, &ports] { return GetDocument(ports.store, *name); }; });

  auto* set = store.add_subcommand("set", "Store a document and show what changes");
  set->add_option("name", options->name, kNameHelp)->required();
  set->add_option("json", options->source, "The document: JSON, @file, or - for standard input")->required();
  set->add_flag("--show", options->only_show, "Only show what would change");
  set->add_flag("--force", options->force, "Store it although the device cannot act on it");
  RefuseSite(*set, kFromAfar);
  set->footer("Example:\n  parkctl store set bus_dev_pos '{\"pos\":1}'");
  set->callback([=, &action, &ports] { action = [=, &ports] { return SetDocument(ports.store, *options); }; });
}

void AddStoreTransfer(CLI::App& store, Action& action, const Ports& ports) {
  const struct {
    const char* name;
    const char* help;
    const char* example;
    int (*run)(const TransferOptions& options);
    bool sets;
  } kRows[] = {
      {"export", "Write every document to a file, whoever's it is", "  parkctl store export camera-14.store.json",
       ExportStore, false},
      {"import", "Make the store hold what such a file holds, and nothing else",
       "  parkctl store import camera-14.store.json --show\n"
       "  parkctl store import /var/lib/business-server/exports/store.1.json",
       ImportStore, true},
  };
  for (const auto& row : kRows) {
    auto* command = store.add_subcommand(row.name, row.help);
    auto options = std::make_shared<TransferOptions>();
    command->add_option("file", options->file, "The file, - for standard input or output")->required();
    if (row.sets) {
      command->add_flag("--show", options->only_show, "Only show which documents would change");
      command->add_flag("--other-device", options->other_device, "Also where the file is of another device");
    }
    RefuseSite(*command, kFromAfar);
    command->footer(std::string("Examples:\n") + row.example);
    command->callback([options, run = row.run, &action, &ports] {
      action = [options, run, &ports] {
        options->store_port = ports.store;
        return run(*options);
      };
    });
  }
}

}  // namespace

void AddStore(CLI::App& app, Action& action, const Ports& ports) {
  auto* store = app.add_subcommand("store", "Read and write the device's stored documents");
  store->require_subcommand(0, 1);
  store->footer(
      "Examples:\n"
      "  parkctl store list\n"
      "  parkctl store get rs485pro\n"
      "  parkctl store set bus_dev_pos_value '{\"pos\":1}'\n"
      "  parkctl store set device_ttyio @line.json --show\n"
      "  parkctl store export camera-14.store.json");
  store->callback([store, &action] {
    if (action) return;
    action = [store] {
      std::cerr << store->help();
      return static_cast<int>(kMisused);
    };
  });
  AddStoreDocument(*store, action, ports);
  AddStoreTransfer(*store, action, ports);
  const struct {
    const char* name;
    const char* help;
    int (*run)(uint16_t store_port);
  } kWhole[] = {
      {"list", "Every document that the device knows", ListDocuments},
      {"backup", "Copy the whole store to its backup", BackUpStore},
      {"restore", "Bring the backup back", RestoreStore},
      {"migrate", "Bring documents of an earlier version into the form of this one (done when the store starts)",
       BringForward},
      {"unreadable", "What documents held that could not be read", ShowUnreadable},
  };
  for (const auto& row : kWhole) {
    auto* command = store->add_subcommand(row.name, row.help);
    RefuseSite(*command, kFromAfar);
    command->footer(std::string("Example:\n  parkctl store ") + row.name);
    command->callback([run = row.run, &action, &ports] { action = [run, &ports] { return run(ports.store); }; });
  }
}

}  // namespace parkctl
