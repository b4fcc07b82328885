#include "site_commands.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "console.h"
#include "plain_words.h"
#include "site/csv.h"
#include "site/difference.h"
#include "site/tree.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

std::string ReadFile(const std::string& file) { return ReadSource(file == "-" ? file : "@" + file); }

bool Say(const std::vector<site::Mistake>& mistakes) {
  for (const site::Mistake& mistake : mistakes) std::cerr << mistake.Text() << "\n";
  if (!mistakes.empty()) Note(site::Counted(mistakes.size(), "mistake"));
  return mistakes.empty();
}

site::Site Read(const std::string& file, std::vector<site::Mistake>& mistakes) {
  site::Site read = site::ReadSite(ReadFile(file), mistakes);
  if (!read.devices.empty() || mistakes.empty()) site::CheckSite(read, mistakes);
  return read;
}

// "garage" of "plans/garage.csv".
std::string Stem(const std::string& file) {
  const std::string name = file.substr(file.rfind('/') + 1);
  return name.substr(0, name.rfind('.'));
}

void Show(const site::Change& change) {
  switch (change.kind) {
    case site::Change::Kind::kNew:
      std::cout << Painted(Paint::kGood, "+ " + change.device) << "  new\n";
      break;
    case site::Change::Kind::kChanged:
      std::cout << Painted(Paint::kYellow, "~ " + change.device) << "\n";
      break;
    case site::Change::Kind::kGone:
      std::cout << Painted(Paint::kBad, "- " + words::Printable(change.device)) << "  not in the file\n";
      break;
  }
  for (const std::string& line : change.lines) std::cout << "    " << line << "\n";
}

size_t CountOf(const std::vector<site::Change>& changes, site::Change::Kind kind) {
  return static_cast<size_t>(
      std::count_if(changes.begin(), changes.end(), [&](const site::Change& change) { return change.kind == kind; }));
}

bool Agreed(size_t plans) {
  if (isatty(STDIN_FILENO) != 1) return true;
  std::cerr << "Send " << site::Counted(plans, "plan") << " to the hub? [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

int Send(Hub& hub, const site::Site& site, const std::vector<site::Change>& changes) {
  std::vector<bus::Message> messages;
  for (const site::Change& change : changes) {
    bus::Message message;
    message.topic = bs::PlanTopic(site.name, change.device);
    if (change.kind != site::Change::Kind::kGone) {
      message.payload = words::CompactText(site::PlanDocument(site.devices.at(change.device)));
    }
    message.retained = true;
    messages.push_back(message);
  }
  const bool counts = isatty(STDERR_FILENO) == 1;
  const auto outcomes = hub.PublishAll(messages, [&](size_t done) {
    if (counts)
      std::cerr << "\r" << done << " of " << messages.size() << (done == messages.size() ? "\n" : "") << std::flush;
  });
  size_t taken = 0;
  int status = kDone;
  for (size_t i = 0; i < outcomes.size(); ++i) {
    const bool good = outcomes[i] == Outcome::kDelivered || outcomes[i] == Outcome::kNobodyListens;
    if (good) ++taken;
    if (good || status == kNoAnswer) continue;
    status = outcomes[i] == Outcome::kRefused ? kRefused : kNoAnswer;
    hub.Explain(outcomes[i], messages[i].topic);
  }
  std::cout << "the hub took " << taken << " of " << site::Counted(messages.size(), "plan") << "\n";
  return status;
}

}  // namespace

int CheckSiteFile(const std::string& file) {
  std::vector<site::Mistake> mistakes;
  const site::Site read = Read(file, mistakes);
  if (!Say(mistakes)) return kRefused;
  std::cout << read.name << ": " << site::Counted(read.devices.size(), "device") << " in "
            << site::Counted(site::DevicesByZone(read).size(), "zone") << ", no mistake\n";
  return kDone;
}

int ShowSiteFile(const std::string& file, bool dot) {
  std::vector<site::Mistake> mistakes;
  const site::Site read = Read(file, mistakes);
  if (!read.devices.empty()) std::cout << (dot ? site::DotText(read) : site::TreeText(read)) << std::flush;
  return Say(mistakes) ? kDone : kRefused;
}

int ImportSiteFile(const std::string& file, const std::string& name) {
  const std::string site_name = name.empty() ? Stem(file) : name;
  if (!bs::IsSiteName(site_name)) {
    throw UserError("--name: '" + words::Printable(site_name) + "' is no name of a site: 1 to 32 of A-Z a-z 0-9 _ -");
  }
  std::vector<site::Mistake> mistakes;
  const site::Site read = site::ImportCsv(ReadFile(file), site_name, mistakes);
  const bool whole = mistakes.empty();
  if (whole) site::CheckSite(read, mistakes);
  // Whatever was read, down to its zones, can be mended as a site file.
  if (whole) std::cout << IndentedText(site::SiteDocument(read)) << std::endl;
  return Say(mistakes) ? kDone : kRefused;
}

int ApplySiteFile(const ApplyOptions& options) {
  std::vector<site::Mistake> mistakes;
  const site::Site read = Read(options.file, mistakes);
  if (!Say(mistakes)) return kRefused;
  Hub hub(options.site);
  if (!hub.address().path.empty() && hub.address().path != read.name) {
    throw UserError("the file is of " + read.name + ", and --site names " + hub.address().path);
  }
  std::map<std::string, std::string> kept;
  const std::string head = bs::PlanTopic(read.name, "");
  const auto take = [&](const bus::Message& message) {
    if (!message.payload.empty()) kept[message.topic.substr(head.size())] = message.payload;
  };
  if (!hub.Connect() || !hub.Collect({bs::PlanTopic(read.name, "+")}, take)) {
    return hub.Explain(Outcome::kNoBroker, "");
  }
  std::vector<site::Change> changes = site::Difference(read, kept);
  for (const site::Change& change : changes) Show(change);
  const size_t gone = CountOf(changes, site::Change::Kind::kGone);
  if (changes.empty()) {
    std::cout << "the hub holds the plans of " << site::Counted(read.devices.size(), "device") << " as the file says\n";
    return kDone;
  }
  std::cout << CountOf(changes, site::Change::Kind::kNew) << " new, " << CountOf(changes, site::Change::Kind::kChanged)
            << " changed, " << gone << " not in the file\n";
  if (options.only_differ) return kRefused;
  if (!options.remove && gone > 0) {
    Note("devices that are not in the file keep their plans: --remove takes those away");
    changes.erase(std::remove_if(changes.begin(), changes.end(),
                                 [](const site::Change& change) { return change.kind == site::Change::Kind::kGone; }),
                  changes.end());
  }
  if (changes.empty()) return kDone;
  if (!options.yes && !Agreed(changes.size())) {
    Note("nothing sent");
    return kRefused;
  }
  return Send(hub, read, changes);
}

}  // namespace parkctl
