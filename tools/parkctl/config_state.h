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
  // Waits for nobody: where another parkctl has the lock, only alone() and UnfinishedRun may be asked.
  explicit ConfigState(const std::string& device_file_name);
  ~ConfigState();
  ConfigState(const ConfigState&) = delete;
  ConfigState& operator=(const ConfigState&) = delete;

  bool alone() const { return alone_; }

  // The last configuration that was known to be good, before something was set.
  std::optional<config::Configuration> LastGood() const;

  // held is what a run begins with. It is good unless the run before ended half way, or was refused something.
  void KeepLastGood(const config::Configuration& held) const;

  // What a change that goes back by itself begins with. It counts as the last good one when the change turns out to
  // have stayed: whether it did shows in what the device holds later.
  void BeginTry(const config::Configuration& held) const;
  void DropTry() const;
  void SettleTry(const config::Configuration& held_now) const;

  // A run under way: what it was to set. It is there as long as the run has not ended.
  std::optional<config::Configuration> UnfinishedRun() const;
  void BeginRun(const std::vector<config::Change>& changes) const;
  void EndRun(bool well) const;

 private:
  std::optional<config::Configuration> ReadConfiguration(const char* ending) const;
  void Write(const char* ending, const std::string& text) const;
  void Remove(const char* ending) const;
  bool Exists(const char* ending) const;

  std::string path_;  // without ending
  int lock_ = -1;
  bool alone_ = false;
};

}  // namespace parkctl
