// What parkctl remembers of the configurations that it sets, in files of the user's: what a device had before, and a
// run that has not ended. $XDG_STATE_HOME/parkctl, else ~/.local/state/parkctl.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/config_file.h"

namespace parkctl {

class ConfigState {
 public:
  // Waits for nobody: throws UserError when another parkctl sets this device's configuration right now.
  explicit ConfigState(const std::string& device_file_name);
  ~ConfigState();
  ConfigState(const ConfigState&) = delete;
  ConfigState& operator=(const ConfigState&) = delete;

  // The last configuration that was known to be good, before something was set.
  std::optional<config::Configuration> LastGood() const;
  void KeepLastGood(const config::Configuration& configuration) const;

  // A run under way: what it was to set. It is there as long as the run has not ended.
  std::optional<config::Configuration> UnfinishedRun() const;
  void BeginRun(const std::vector<config::Change>& changes) const;
  void EndRun() const;

 private:
  std::optional<config::Configuration> ReadConfiguration(const char* ending) const;
  void Write(const char* ending, const std::string& text) const;

  std::string path_;  // without ending
  int lock_ = -1;
};

}  // namespace parkctl
