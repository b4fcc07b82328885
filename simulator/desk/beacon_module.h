// The beacon module at the end of its serial link: it holds an identity and settings, takes "DTM:" commands and
// answers with "MTD:" lines. It can be made to misbehave in the ways that modules in the field do.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "bringup/loop.h"
#include "bringup/pty.h"

namespace desk {

// What the module keeps. It starts with its maker's values, all different from what the daemon tells it.
struct BeaconState {
  std::string name = "MODULE";
  std::string uuid = "FACTORY-IDENTITY";  // 16 bytes
  uint16_t major = 1;
  uint16_t minor = 2;
  int period = 1000;         // ms
  int send_power = 0;        // dBm
  int measured_power = -59;  // dBm at one metre
  std::string clock = "20240101000000";
};

// "gate-7  PARKING-LEVEL-B1" and "major 7  minor 42  500 ms  4 dBm  -55 dBm at 1 m".
std::string IdentityText(const BeaconState& state);
std::string SettingsText(const BeaconState& state);

// The module's answer to one command line, given without its line end; settings that it accepts go into state.
std::string AnswerBeaconCommand(const std::string& command, BeaconState& state);

enum class BeaconManner { kPrompt, kSilent, kSlow, kSplit, kNoisy, kGarbage };

struct BeaconMannerName {
  BeaconManner manner;
  const char* word;   // in scripts
  const char* shown;  // on the screen
};
inline constexpr BeaconMannerName kBeaconManners[] = {
    {BeaconManner::kPrompt, "prompt", "prompt"},
    {BeaconManner::kSilent, "silent", "silent"},
    {BeaconManner::kSlow, "slow", "slow"},
    {BeaconManner::kSplit, "split", "split answers"},
    {BeaconManner::kNoisy, "noisy", "noise before answers"},
    {BeaconManner::kGarbage, "garbage", "garbage"},
};

class BeaconModule {
 public:
  using CommandHandler = std::function<void(const std::string& command, const std::string& answer)>;

  BeaconModule(Loop& loop, Pty& line);

  const BeaconState& state() const { return state_; }
  bool plugged() const { return plugged_; }
  BeaconManner manner() const { return manner_; }

  void Plug() { plugged_ = true; }
  void Unplug() { plugged_ = false; }
  // delay counts for kSlow only.
  void Behave(BeaconManner manner, Loop::Milliseconds delay = Loop::Milliseconds(30));

  // Called for each command line with what the module sent back, empty when it kept silent.
  void OnCommand(CommandHandler handler) { handler_ = std::move(handler); }

 private:
  void Receive(const std::string& bytes);
  void Send(const std::string& answer);

  Loop& loop_;
  Pty& line_;
  BeaconState state_;
  bool plugged_ = true;
  BeaconManner manner_ = BeaconManner::kPrompt;
  Loop::Milliseconds delay_{30};
  std::string received_;
  CommandHandler handler_;
};

}  // namespace desk
