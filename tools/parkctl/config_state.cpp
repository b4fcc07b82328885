#include "config_state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "console.h"

namespace parkctl {

namespace {

namespace fs = std::filesystem;

constexpr char kLastGood[] = ".last-good.json";
constexpr char kTried[] = ".tried.json";
constexpr char kRun[] = ".run.json";
constexpr char kRefusedRun[] = ".refused.json";  // the latest run that ended with something refused
constexpr char kLock[] = ".lock";

fs::path Directory() {
  const char* const state = std::getenv("XDG_STATE_HOME");
  const char* const home = std::getenv("HOME");
  if (state != nullptr && *state == '/') return fs::path(state) / "parkctl";
  if (home != nullptr && *home == '/') return fs::path(home) / ".local/state/parkctl";
  throw UserError("no HOME in the environment: nowhere to keep what the device had before");
}

}  // namespace

ConfigState::ConfigState(const std::string& device_file_name) {
  std::error_code error;
  fs::create_directories(Directory(), error);
  path_ = Directory() / device_file_name;
  lock_ = open((path_ + kLock).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lock_ < 0) throw UserError("cannot write to " + Directory().string());
  alone_ = flock(lock_, LOCK_EX | LOCK_NB) == 0;
}

ConfigState::~ConfigState() { close(lock_); }

std::optional<config::Configuration> ConfigState::ReadConfiguration(const char* ending) const {
  std::ifstream file(path_ + ending, std::ios::binary);
  if (!file) return std::nullopt;
  std::ostringstream text;
  text << file.rdbuf();
  config::Configuration configuration;
  config::ReadFile(text.str(), configuration);  // what a device once held need not be valid
  if (configuration.documents.empty()) return std::nullopt;
  return configuration;
}

// Whole or not at all, also when the power fails.
void ConfigState::Write(const char* ending, const std::string& text) const {
  const std::string path = path_ + ending;
  const std::string draft = path + ".draft";
  const int fd = open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const bool written =
      fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
  if (fd >= 0) close(fd);
  if (!written || rename(draft.c_str(), path.c_str()) != 0) {
    throw UserError("cannot write " + path + ": nothing is set without a record of what was there before");
  }
}

std::optional<config::Configuration> ConfigState::LastGood() const { return ReadConfiguration(kLastGood); }

void ConfigState::KeepLastGood(const config::Configuration& held) const {
  const bool ended_well = !Exists(kRun) && !Exists(kRefusedRun);
  if (ended_well || !Exists(kLastGood)) Write(kLastGood, config::FileText(held));
}

void ConfigState::BeginTry(const config::Configuration& held) const { Write(kTried, config::FileText(held)); }

void ConfigState::DropTry() const { Remove(kTried); }

void ConfigState::SettleTry(const config::Configuration& held_now) const {
  const std::optional<config::Configuration> before = ReadConfiguration(kTried);
  if (before && !config::Difference(held_now, *before).empty()) KeepLastGood(*before);
  Remove(kTried);
}

std::optional<config::Configuration> ConfigState::UnfinishedRun() const { return ReadConfiguration(kRun); }

void ConfigState::BeginRun(const std::vector<config::Change>& changes) const {
  config::Configuration wanted;
  for (const config::Change& change : changes) wanted.documents.push_back({change.part, change.after});
  Write(kRun, config::FileText(wanted));
}

void ConfigState::EndRun(bool well) const {
  if (well) {
    Remove(kRefusedRun);
    Remove(kRun);
  } else {
    rename((path_ + kRun).c_str(), (path_ + kRefusedRun).c_str());
  }
}

void ConfigState::Remove(const char* ending) const { unlink((path_ + ending).c_str()); }

bool ConfigState::Exists(const char* ending) const { return access((path_ + ending).c_str(), F_OK) == 0; }

}  // namespace parkctl
