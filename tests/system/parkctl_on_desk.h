// Command lines of parkctl on a running device: what each prints and how it ends.
#pragma once

#include <string>

#include "device_on_desk.h"

class ParkctlOnDesk : public DeviceOnDesk {
 protected:
  struct Row {
    const char* command_line;
    int status;
    const char* printed;  // a part of it; null: nothing is printed
  };

  void RunRow(const Row& row) {
    const Outcome outcome = Run(row.command_line);
    EXPECT_EQ(outcome.status, row.status) << row.command_line << "\n" << outcome.output;
    const bool as_expected =
        row.printed != nullptr ? outcome.output.find(row.printed) != std::string::npos : outcome.output.empty();
    EXPECT_TRUE(as_expected) << row.command_line << "\nprinted:\n" << outcome.output;
  }
};
