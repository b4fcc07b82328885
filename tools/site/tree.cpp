#include "site/tree.h"

#include <algorithm>

#include "plain_words.h"

namespace site {

namespace bs = businessserver;

namespace {

constexpr size_t kNamedMost = 6;

size_t Depth(const std::string& zone) { return static_cast<size_t>(std::count(zone.begin(), zone.end(), '/')); }

size_t Characters(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string Padded(std::string text, size_t width) {
  const size_t characters = Characters(text);
  return text.append(characters < width ? width - characters : 0, ' ');
}

// "left L1/B L1/C, right L2"
std::string ShowsText(const Plan& plan) {
  std::string text;
  for (size_t i = 0; i < kDirections; ++i) {
    if (plan.shows[i].empty()) continue;
    text += (text.empty() ? "" : ", ") + std::string(bs::kDirectionNames[i]);
    for (const std::string& zone : plan.shows[i]) text += " " + zone;
  }
  return text;
}

// Who shows each zone, "ENTRANCE left".
std::map<std::string, std::vector<std::string>> ShownBy(const Site& site) {
  std::map<std::string, std::vector<std::string>> shown;
  for (const auto& [name, plan] : site.devices) {
    for (size_t i = 0; i < kDirections; ++i) {
      for (const std::string& zone : plan.shows[i]) shown[zone].push_back(name + " " + bs::kDirectionNames[i]);
    }
  }
  return shown;
}

std::string FirstOf(const std::vector<std::string>& names) {
  std::string text;
  for (size_t i = 0; i < std::min(names.size(), kNamedMost); ++i) text += (i == 0 ? "" : ", ") + names[i];
  return names.size() > kNamedMost ? text + " and " + std::to_string(names.size() - kNamedMost) + " more" : text;
}

std::string DotQuoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : words::Printable(text)) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

}  // namespace

std::string Counted(size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string TreeText(const Site& site) {
  const std::map<std::string, size_t> zones = DevicesByZone(site);
  const auto shown = ShownBy(site);
  std::map<std::string, std::vector<const std::pair<const std::string, Plan>*>> devices;
  size_t name_width = 0, label_width = 0, zone_width = 0;
  for (const auto& entry : site.devices) {
    devices[entry.second.zone].push_back(&entry);
    name_width = std::max(name_width, entry.first.size());
    label_width = std::max(label_width, std::min<size_t>(Characters(entry.second.name), 40));
  }
  for (const auto& [zone, count] : zones) zone_width = std::max(zone_width, Depth(zone) * 2 + zone.size());
  std::string text =
      site.name + ": " + Counted(site.devices.size(), "device") + " in " + Counted(zones.size(), "zone") + "\n";
  for (const auto& [zone, count] : zones) {
    const std::string indentation(2 * Depth(zone), ' ');
    text += Padded(indentation + zone, zone_width) + "  " + Counted(count, "device");
    if (const auto who = shown.find(zone); who != shown.end()) text += ", shown by " + FirstOf(who->second);
    text += "\n";
    for (const auto* device : devices[zone]) {
      const std::string shows = ShowsText(device->second);
      std::string line = indentation + "    " + Padded(device->first, name_width) + "  " +
                         Padded(words::Printable(device->second.name), label_width) +
                         (shows.empty() ? "" : "  shows " + shows);
      line.erase(line.find_last_not_of(' ') + 1);
      text += line + "\n";
    }
  }
  return text;
}

std::string DotText(const Site& site) {
  std::string text = "digraph " + DotQuoted(site.name) +
                     " {\n  rankdir=LR;\n  node [fontname=\"sans-serif\"];\n  edge [fontname=\"sans-serif\"];\n";
  for (const auto& [zone, count] : DevicesByZone(site)) {
    text += "  " + DotQuoted("zone " + zone) +
            " [shape=box, style=rounded, label=" + DotQuoted(zone + ", " + Counted(count, "device")) + "];\n";
    if (const size_t slash = zone.rfind('/'); slash != std::string::npos) {
      text += "  " + DotQuoted("zone " + zone.substr(0, slash)) + " -> " + DotQuoted("zone " + zone) +
              " [style=dotted, arrowhead=none];\n";
    }
  }
  for (const auto& [name, plan] : site.devices) {
    if (ShowsText(plan).empty()) continue;
    if (!plan.zone.empty()) {
      text += "  " + DotQuoted("zone " + plan.zone) + " -> " + DotQuoted(name) + " [style=dotted, arrowhead=none];\n";
    }
    text += "  " + DotQuoted(name) + " [label=" + DotQuoted(plan.name.empty() ? name : plan.name) + "];\n";
    for (size_t i = 0; i < kDirections; ++i) {
      for (const std::string& zone : plan.shows[i]) {
        text += "  " + DotQuoted(name) + " -> " + DotQuoted("zone " + zone) +
                " [label=" + DotQuoted(bs::kDirectionNames[i]) + "];\n";
      }
    }
  }
  return text + "}\n";
}

}  // namespace site
