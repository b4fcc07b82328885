#include "screen/narrator.h"

#include <ctime>

#include "desk/serial_line.h"

namespace desk {
namespace {

// Terminal colours: what comes from outside is plain, what the daemon does stands out.
const char* Color(Source source) {
  switch (source) {
    case Source::kScript:
      return "1";
    case Source::kLed:
      return "33";
    case Source::kSerialOut:
    case Source::kDisplay:
      return "35";
    case Source::kBroadcast:
    case Source::kRepublished:
    case Source::kReply:
      return "32";
    case Source::kBeacon:
      return "36";
    case Source::kDesk:
      return "2";
    default:
      return "0";
  }
}

}  // namespace

std::string ClockText(std::chrono::system_clock::time_point time) {
  const time_t seconds = std::chrono::system_clock::to_time_t(time);
  const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  tm parts{};
  localtime_r(&seconds, &parts);
  char text[32];
  snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min, parts.tm_sec,
           static_cast<int>(since % 1000));
  return text;
}

void Narrator::Tell(const Event& event) {
  if (muted_ || FindFact(event.facts, kRepeated) != nullptr) return;
  const std::string time = ClockText(event.time);
  if (event.source == Source::kScript) fputs("\n", out_);
  if (colors_) {
    fprintf(out_, "%s  \033[%sm%-11s  %s\033[0m\n", time.c_str(), Color(event.source), SourceName(event.source),
            event.text.c_str());
  } else {
    fprintf(out_, "%s  %-11s  %s\n", time.c_str(), SourceName(event.source), event.text.c_str());
  }
  fflush(out_);
}

}  // namespace desk
