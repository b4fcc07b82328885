#include "site_status.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <iostream>
#include <thread>

#include "console.h"
#include "interrupt.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "site/tree.h"
#include "site/view.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

using std::chrono::milliseconds;
using Clock = site::View::Clock;

constexpr milliseconds kPass{1000};
constexpr milliseconds kRetry{1000};
constexpr milliseconds kDrawn{
    500};  // at the most so often: whoever draws does not read, and hubs queue for nobody long

// Keeps connected until interrupted: begin for each new connection, then turn about once a second.
class Follower {
 public:
  explicit Follower(const SiteOptions& options) : options_(options) { EndOnInterrupt(); }

  // The first connection has to succeed, and the site to be one; else the exit status.
  int Run(const std::function<std::vector<std::string>(const std::string& site)>& begin,
          const std::function<bool(const std::vector<bus::Message>&)>& turn) {
    std::string site;
    bool waiting = false;
    while (!Interrupted()) {
      Hub hub(options_);
      bool up = hub.Connect();
      if (up && site.empty()) {
        site = hub.FindSite();
        if (site.empty()) return kNoAnswer;
      }
      up = up && hub.Listen(begin(site));
      if (!up && site.empty()) return hub.Explain(Outcome::kNoBroker, "");
      if (up && waiting) Note("the hub is back");
      if (up) waiting = false;
      while (up && !Interrupted()) {
        std::vector<bus::Message> messages;
        up = hub.Receive(kPass, [&](const bus::Message& message) { messages.push_back(message); });
        if (!turn(messages)) return kDone;
      }
      if (Interrupted()) break;
      if (!waiting) hub.Explain(Outcome::kNoBroker, "");
      if (!waiting) Note("waiting for it");
      waiting = true;
      std::this_thread::sleep_for(kRetry);
    }
    return kDone;
  }

 private:
  const SiteOptions options_;
};

void Take(site::View& view, const bus::Message& message) {
  view.Take(message.topic, message.payload, message.retained, Clock::now());
}

int Print(const site::View& view, StatusForm form) {
  const auto now = Clock::now();
  switch (form) {
    case StatusForm::kText:
      std::cout << site::StatusText(view, now);
      break;
    case StatusForm::kJson:
      std::cout << IndentedText(site::StatusJson(view, now)) << "\n";
      break;
    case StatusForm::kOpenMetrics:
      std::cout << site::OpenMetrics(view, now);
      break;
  }
  std::cout << std::flush;
  const std::vector<site::DeviceRow> rows = view.Devices(now);
  for (const site::DeviceRow& row : rows) {
    if (row.state != site::State::kOk) return kRefused;
  }
  return rows.empty() ? kRefused : kDone;
}

// What fits on the terminal, from its top.
void Draw(const site::View& view) {
  winsize size = {};
  const size_t lines = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 2 ? size.ws_row - 1u : 23u;
  const std::string text = site::StatusText(view, Clock::now());
  std::string shown = "\033[H";
  size_t at = 0;
  for (size_t line = 0; line < lines && at < text.size(); ++line) {
    const size_t end = text.find('\n', at);
    shown += text.substr(at, end - at) + "\033[K\n";
    at = end + 1;
  }
  std::cout << shown << "\033[J" << std::flush;
}

// A line for each device whose state has changed.
void Tell(const site::View& view, std::map<std::string, std::string>& told, StatusForm form) {
  const auto now = Clock::now();
  for (const site::DeviceRow& row : view.Devices(now)) {
    std::string& last = told[row.device];
    if (last == site::StateName(row.state)) continue;
    last = site::StateName(row.state);
    if (form == StatusForm::kJson) {
      Json::Value line;
      line["time"] = Now();
      line["device"] = row.device;
      line["state"] = last;
      std::cout << OneLineText(line) << std::endl;
    } else {
      std::cout << Now() << "  " << row.device << "  " << last << std::endl;
    }
  }
}

std::string WatchLine(const std::string& device, const std::string& branch, const std::string& zone,
                      const Json::Value& document) {
  if (branch == "counts" && document.isObject()) {
    return device + "  " + zone + "  " + OneLineText(document[bs::kFree]) + " of " +
           OneLineText(document[bs::kSpacesCount]) + " free";
  }
  if (branch == "counts") return device + "  " + zone + "  cleared";
  return device + "  " + (document.isNull() ? "health cleared" : site::HealthWords(document));
}

}  // namespace

int SiteStatus(const StatusOptions& options) {
  std::optional<site::View> view;
  if (options.watch) {
    const bool terminal = isatty(STDOUT_FILENO) == 1 && options.form == StatusForm::kText;
    std::map<std::string, std::string> told;
    auto drawn = Clock::now() - kDrawn;
    const auto quiet_until = Clock::now() + kPass;  // what the hub had kept comes first, piece by piece
    return Follower(options.site)
        .Run(
            [&](const std::string& site) {
              if (!view) view.emplace(site);
              return site::View::Filters(site);
            },
            [&](const std::vector<bus::Message>& messages) {
              for (const bus::Message& message : messages) Take(*view, message);
              if (terminal) {
                if (Clock::now() - drawn >= kDrawn) {
                  Draw(*view);
                  drawn = Clock::now();
                }
              } else if (Clock::now() > quiet_until) {
                Tell(*view, told, options.form);
              }
              return static_cast<bool>(std::cout);
            });
  }
  Hub hub(options.site);
  if (!hub.Connect()) return hub.Explain(Outcome::kNoBroker, "");
  const std::string name = hub.FindSite();
  if (name.empty()) return kNoAnswer;
  view.emplace(name);
  if (!hub.Collect(site::View::Filters(name), [&](const bus::Message& message) { Take(*view, message); })) {
    return hub.Explain(Outcome::kNoBroker, "");
  }
  const int status = Print(*view, options.form);
  if (view->dropped() > 0) Note(site::Counted(view->dropped(), "message") + " of the hub could not be read");
  return status;
}

int SiteWatch(const SiteWatchOptions& options) {
  std::string head;
  uint64_t printed = 0;
  return Follower(options.site)
      .Run(
          [&](const std::string& site) {
            head = "park/" + site + "/";
            return std::vector<std::string>{bs::SiteTopic(site, "counts", "#"), bs::HealthTopic(site, "+")};
          },
          [&](const std::vector<bus::Message>& messages) {
            for (const bus::Message& message : messages) {
              const std::string rest = words::Printable(message.topic.substr(head.size()));
              const size_t first = rest.find('/');
              const size_t second = std::min(rest.find('/', first + 1), rest.size());
              const std::string branch = rest.substr(0, first), device = rest.substr(first + 1, second - first - 1);
              const std::string zone = second < rest.size() ? rest.substr(second + 1) : "";
              Json::Value document;
              if (!message.payload.empty() && !bs::ParseJson(message.payload, document)) {
                document = words::Printable(message.payload);
              }
              if (options.json) {
                Json::Value line;
                line["time"] = Now();
                line["topic"] = branch;
                line["device"] = device;
                if (!zone.empty()) line["zone"] = zone;
                line["kept"] = message.retained;
                line["document"] = document;
                std::cout << OneLineText(line) << std::endl;
              } else {
                std::cout << Painted(Paint::kFaint, Now().substr(11)) << "  "
                          << WatchLine(device, branch, zone, document) << std::endl;
              }
              if (!std::cout || (options.count > 0 && ++printed >= options.count)) return false;
            }
            return true;
          });
}

}  // namespace parkctl
