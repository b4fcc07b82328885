#include "screen/bad_change.h"

#include <ctime>
#include <filesystem>
#include <fstream>

#include "plain_words.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/stored_documents.h"

namespace desk {
namespace {

namespace bs = businessserver;

constexpr int kSeconds = 15;
constexpr int kSilentSpeed = 300;  // baud; displays are set to the usual one
constexpr int kDark = 4;           // the lamp's colour with every line off
constexpr Loop::Milliseconds kLookPeriod(250), kTold(6000);
constexpr char kWaitingChange[] = "config_change_value";
constexpr char kFile[] = "bad-change.json";

// Of the clock that the change's deadline is told by, ms.
uint64_t SinceBoot() {
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

}  // namespace

BadChange::BadChange(Desk& desk, std::string parkctl)
    : desk_(desk), parkctl_(std::move(parkctl)), tool_(desk.loop(), "parkctl"), guard_(desk.loop(), "guard") {
  tool_.OnLine(
      [this](const std::string& line) { desk_.journal().Add(Source::kDesk, "parkctl: " + words::Printable(line)); });
}

std::optional<Json::Value> BadChange::Stored(const char* document) {
  std::string text;
  Json::Value value;
  if (!desk_.store_client().Get(document, text) || !bs::ParseJson(text, value) || !value.isObject())
    return std::nullopt;
  return value;
}

bool BadChange::IsAsItWas() {
  for (const Json::Value& change : tried_) {
    const bs::Command* const command = bs::FindCommand(bs::kBusRequestMessage, change[bs::kType].asString());
    if (command == nullptr || command->document == nullptr) continue;
    const std::optional<Json::Value> now = Stored(command->document->key);
    if (!now || *now != change["before"]) return false;
  }
  return true;
}

void BadChange::Make() {
  std::optional<Json::Value> line = Stored(bs::kDeviceTtyio.key), lamp = Stored(bs::kBusLedColor.key);
  if (tool_.running() || is_waiting_ || !line || !lamp) {
    const char* const why = line && lamp ? "one waits already" : "the store does not say what the device has";
    desk_.journal().Add(Source::kDesk, std::string("no bad change: ") + why);
    return;
  }
  (*line)[bs::kBaudrate] = kSilentSpeed;
  Json::Value& colors = (*lamp)[bs::kParkingledcolorcfg];
  for (const std::string& name : colors.getMemberNames()) {
    if (name.find("twinkle") == std::string::npos) colors[name] = kDark;
  }
  Json::Value file;
  file["version"] = 1;
  file["documents"][bs::kDeviceTtyio.key] = *line;
  file["documents"][bs::kBusLedColor.key] = *lamp;
  const std::string here = std::filesystem::absolute(desk_.directory());
  std::ofstream(here + "/" + kFile) << bs::StyledText(file);

  // The guard ends with the desk. Where there is one already, this one does so at once.
  std::string problem;
  guard_.Configure({parkctl_, "config", "guard"}, here);
  if (!guard_.running()) guard_.Start(problem);
  tool_.Configure({"env", "XDG_STATE_HOME=" + here, parkctl_, "config", "apply", kFile, "--yes", "--confirm",
                   std::to_string(kSeconds)},
                  here);
  if (!tool_.Start(problem)) desk_.journal().Add(Source::kDesk, problem);
}

void BadChange::Look() {
  const auto now = Loop::Clock::now();
  if (now < look_at_) return;
  look_at_ = now + kLookPeriod;
  if (const std::optional<Json::Value> change = Stored(kWaitingChange)) {
    is_waiting_ = true;
    tried_ = (*change)["changes"];
    const uint64_t deadline = (*change)["deadline"].isUInt64() ? (*change)["deadline"].asUInt64() : 0;
    const uint64_t clock = SinceBoot();
    words_ = "A change is tried: " + std::to_string(deadline > clock ? (deadline - clock + 999) / 1000 : 0) +
             " s left, then all goes back unless somebody says \"parkctl config confirm\"";
    return;
  }
  if (is_waiting_ && desk_.store_client().Ping()) {
    is_waiting_ = false;
    forget_at_ = now + kTold;
    words_ = IsAsItWas() ? "Nobody confirmed the change: the device is as it was" : "The change was kept";
    desk_.journal().Add(Source::kDesk, words_);
  }
  if (!is_waiting_ && now > forget_at_) words_.clear();
}

}  // namespace desk
