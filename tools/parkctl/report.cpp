#include "report.h"

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "build_identity/build.h"
#include "console.h"
#include "plain_words.h"
#include "report_parts.h"
#include "whole_file.h"

namespace parkctl {

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr milliseconds kPackLimit{2500};

// What a part looks at. "$PARKCTL" is this program with the ports and the device that it was called with.
struct Row {
  const char* name;
  const char* what;
  const char* script;
};

constexpr Row kHere[] = {
    {"versions", "which build runs, on which system",
     "$PARKCTL version; echo; uname -a; cat /etc/os-release; echo; redis-server --version; mosquitto -h | head -n 1; "
     "dpkg-query -W 'business-server*' mosquitto redis-server 'libmosquitto1' 'libhiredis*' systemd 2>/dev/null; true"},
    {"units", "services, their restarts and their limits",
     "for unit in business-server business-server-bus business-server-store business-server-relay "
     "business-server-guard business-server-console business-server-export; do "
     "systemctl show $unit.service --property=Id,LoadState,UnitFileState,ActiveState,SubState,Result,NRestarts,"
     "ExecMainStartTimestamp,ExecMainStatus,MemoryCurrent,CPUUsageNSec,NeedDaemonReload,DropInPaths && echo || exit; "
     "done; systemctl list-timers --all --no-pager 'business-server*'; systemctl --failed --no-pager"},
    {"system", "uptime, clock, memory, disk, temperature",
     "date --iso-8601=seconds; uptime; timedatectl; echo; free -k; echo; df -k; echo; df -i; echo; "
     "for zone in /sys/class/thermal/thermal_zone*; do [ -e $zone/temp ] && "
     "echo \"$(cat $zone/type): $(cat $zone/temp) thousandths of a degree\"; done; "
     "ps -eo pid,user,rss,pcpu,etime,comm --sort=-rss | head -n 40"},
    {"drops", "what was lost: on the network, on the serial lines, in bus, store and log",
     "cat /proc/net/dev; echo; nstat -a || cat /proc/net/netstat; echo; cat /proc/tty/driver/*; echo; "
     "journalctl --namespace=business-server --no-pager --output=short-iso "
     "--grep='lost|dropped|refuse|does not answer|cannot be reached|too long|longer than' | tail -n 300; true"},
    {"files", "configuration and data, by name, size and owner; no contents",
     "ls -lR /etc/business-server /var/lib/business-server /etc/systemd/system; du -sk /var/log/journal/*"},
    {"settings", "what was changed in units", "systemctl cat 'business-server*' --no-pager"},
    {"documents", "every document of the store, secrets masked", "$PARKCTL report-part documents"},
    {"unreadable", "documents that could not be read, and what was put into their place",
     "$PARKCTL report-part unreadable"},
    {"counts", "what the daemon shows and counts",
     "for command in get_frame_status get_device_frame_status get_net_status quary_controled_log; do "
     "echo \"$command:\"; $PARKCTL request $command --timeout 4 || failed=1; done; exit ${failed:-0}"},
    {"site", "which site the device belongs to", "$PARKCTL relay show"},
    {"journal", "the services' own journal; records of every message, which hold plates, are left out",
     "journalctl --namespace=business-server --no-pager --output=short-iso --priority=info --lines=4000"},
    {"supervisor", "starts and ends of services",
     "journalctl --no-pager --output=short-iso --lines=1000 --unit='business-server*'"},
    {"kernel", "warnings of the kernel", "journalctl -k --no-pager --output=short-iso --priority=warning --lines=500"},
};

constexpr Row kAfar[] = {
    {"versions", "which build runs", "$PARKCTL version \"$@\""},
    {"health", "what the device's relay says of itself, and what is planned for it",
     "$PARKCTL report-part health \"$@\""},
    {"documents", "the documents that a command reads, secrets masked", "$PARKCTL report-part documents \"$@\""},
    {"counts", "what the daemon shows and counts",
     "for command in get_frame_status get_device_frame_status get_net_status quary_controled_log; do "
     "echo \"$command:\"; $PARKCTL request $command --timeout 4 \"$@\" || failed=1; done; exit ${failed:-0}"},
};

// --site and its like, for the parts.
std::vector<std::string> DeviceWords(const DeviceOptions& device) {
  std::vector<std::string> words;
  const std::pair<const char*, const std::string&> kOptions[] = {{"--device", device.device},
                                                                 {"--site", device.site.address},
                                                                 {"--user", device.site.user},
                                                                 {"--password-file", device.site.password_file},
                                                                 {"--ca", device.site.ca}};
  for (const auto& [option, value] : kOptions) {
    if (value.empty()) continue;
    words.emplace_back(option);
    words.push_back(value);
  }
  return words;
}

ReportPart MakePart(const Row& row, const ReportOptions& options) {
  const std::string self = fs::read_symlink("/proc/self/exe");
  const std::string ports =
      " --bus-port " + std::to_string(options.device.bus_port) + " --store-port " + std::to_string(options.store_port);
  std::string script = row.script;
  const std::string placeholder = "$PARKCTL";
  const std::string parkctl = "\"$0\"" + ports;
  for (size_t at; (at = script.find(placeholder)) != std::string::npos;) {
    script.replace(at, placeholder.size(), parkctl);
  }
  ReportPart part{std::string(row.name) + ".txt", row.what, {"sh", "-c", script, self}};
  for (std::string& word : DeviceWords(options.device)) part.command.push_back(std::move(word));
  return part;
}

std::string TimeText(const char* form) {
  const time_t now = time(nullptr);
  char text[64];
  strftime(text, sizeof text, form, gmtime(&now));
  return text;
}

// A directory of this process's own, where there is room; it goes with the object.
class Scratch {
 public:
  Scratch() {
    const char* const wanted = getenv("TMPDIR");
    for (const char* place : {wanted, "/tmp", "/dev/shm", "/run"}) {
      if (place == nullptr) continue;
      std::string name = std::string(place) + "/parkctl-report-XXXXXX";
      if (mkdtemp(name.data()) == nullptr) continue;
      places_.push_back(name);
    }
  }
  ~Scratch() {
    std::error_code ignored;
    for (const fs::path& place : places_) fs::remove_all(place, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  // The place into which everything could be written; empty: nowhere was room.
  fs::path Put(const std::string& directory, const std::vector<std::pair<std::string, std::string>>& files) const {
    for (const fs::path& place : places_) {
      std::error_code error;
      fs::create_directory(place / directory, error);
      bool written = !error;
      for (const auto& [name, text] : files) {
        std::ofstream file(place / directory / name, std::ios::binary);
        file << text << std::flush;
        written = written && file.good();
      }
      if (written) return place;
      fs::remove_all(place / directory, error);
    }
    return {};
  }

 private:
  std::vector<fs::path> places_;
};

std::string Contents(const ReportOptions& options, const std::vector<ReportPart>& parts,
                     const std::vector<PartResult>& results) {
  std::string text = "Report of " +
                     (options.device.device.empty() ? "the device that parkctl runs on"
                                                    : "the device " + words::Printable(options.device.device)) +
                     "\nmade " + TimeText("%Y-%m-%d %H:%M:%S UTC") + " by " + build::Line("parkctl") +
                     "\n\nKeys and plates are masked. It names people's accounts, addresses and devices: give it only "
                     "to whom these may be told.\n\n";
  for (size_t i = 0; i < parts.size(); ++i) {
    text +=
        parts[i].name + "  " + parts[i].what + "\n    " + EndText(results[i], milliseconds(options.limit_ms)) + "\n";
  }
  return text;
}

int Deliver(const std::string& file, const std::string& archive) {
  if (file == "-") {
    std::cout << archive << std::flush;
    return std::cout ? kDone : kRefused;
  }
  const std::string problem = WriteWholeFile(file, archive);
  if (problem.empty()) return kDone;
  Note("cannot write '" + file + "': " + problem + ". /dev/shm is in memory and has room more often than a disk");
  return kRefused;
}

}  // namespace

int MakeReport(const ReportOptions& options) {
  const bool here = options.device.device.empty();
  if (options.file == "-" && isatty(STDOUT_FILENO) == 1) throw UserError("an archive is nothing for a terminal");
  std::vector<ReportPart> parts;
  if (here) {
    for (const Row& row : kHere) parts.push_back(MakePart(row, options));
  } else {
    for (const Row& row : kAfar) parts.push_back(MakePart(row, options));
  }
  const std::vector<PartResult> results = RunParts(parts, milliseconds(options.limit_ms));

  std::vector<std::pair<std::string, std::string>> files = {{"README.txt", Contents(options, parts, results)}};
  for (size_t i = 0; i < parts.size(); ++i) files.emplace_back(parts[i].name, results[i].output);
  const std::string who = here ? "" : words::Printable(options.device.device) + "-";
  const std::string name = "report-" + who + TimeText("%Y%m%d-%H%M%S");
  const Scratch scratch;
  const fs::path place = scratch.Put(name, files);
  if (place.empty()) {
    Note("there is no room for the report in /tmp, /dev/shm or /run");
    return kRefused;
  }
  const PartResult packed =
      RunParts({{"", "", {"tar", "-C", place, "--owner=0", "--group=0", "-czf", "-", name}}}, kPackLimit).front();
  if (packed.end != PartResult::End::kDone) {
    Note("tar did not pack the report: " + EndText(packed, kPackLimit));
    return kRefused;
  }
  const std::string file = options.file.empty() ? name + ".tar.gz" : options.file;
  const int status = Deliver(file, packed.output);
  if (file == "-" || status != kDone) return status;
  std::cout << file << ": " << packed.output.size() / 1024 + 1 << " KiB\n";
  for (size_t i = 0; i < parts.size(); ++i) {
    if (results[i].end != PartResult::End::kDone) {
      std::cout << "  " << parts[i].name << ": " << EndText(results[i], milliseconds(options.limit_ms)) << "\n";
    }
  }
  return kDone;
}

}  // namespace parkctl
