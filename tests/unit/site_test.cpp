// What parkctl site knows without a socket: files read and checked, spreadsheets, differences, the tree.
#include <gtest/gtest.h>

#include <algorithm>

#include "contract/check.h"
#include "protocol/json_text.h"
#include "site/csv.h"
#include "site/difference.h"
#include "site/plan.h"
#include "site/tree.h"

namespace {

using site::Mistake;
using site::Site;

constexpr char kGarage[] = R"({"site": "garage", "devices": {
  "ENT": {"name": "Einfahrt Süd", "zone": "ENT", "shows": {"left": ["L1"], "right": ["L2/A", "L2/B"], "front": []}},
  "L1-1": {"zone": "L1"}, "L1-2": {"zone": "L1", "shows": {"group": ["L1"]}},
  "L2-A": {"zone": "L2/A"}, "L2-B": {"zone": "L2/B"}}})";

std::string All(const std::vector<Mistake>& mistakes) {
  std::string text;
  for (const Mistake& mistake : mistakes) text += mistake.Text() + "\n";
  return text;
}

std::string Check(const std::string& text) {
  std::vector<Mistake> mistakes;
  const Site read = site::ReadSite(text, mistakes);
  // Shapes are the contract's to judge: both agree, and every repetition is named besides.
  Json::Value document;
  if (businessserver::ParseJson(text, document) && mistakes.empty()) {
    EXPECT_TRUE(contract::Check("site/site_file", document).empty()) << text;
  }
  site::CheckSite(read, mistakes);
  return All(mistakes);
}

TEST(SiteFile, EveryMistakeIsNamedWithDeviceFieldAndReason) {
  EXPECT_EQ(Check(kGarage), "");
  const std::string zone33(33, 'z');
  const std::pair<std::string, std::vector<std::string>> kRows[] = {
      {R"("A": {"zone": "L 1"}, "B": {"zone": 5}, "C": {}, "D": 7, "E": {"zone": "L1", "shows": []})",
       {"A zone: ", "B zone: ", "C zone: ", "D: ", "E shows: "}},
      {R"("A": {"zone": ")" + zone33 + R"("}, "B": {"zone": "1/2/3/4/5/6/7/8/9"}, "C": {"zone": "L1/"})",
       {"A zone: ", "B zone: ", "C zone: "}},
      {R"("Ü 1": {"zone": "L1"}, "B": {"zone": "L1", "names": "x"}, "C": {"zone": "L1", "shows": {"back": ["L1"]}})",
       {"Ü 1: is no name of a device", "B names: ", "C shows.back: "}},
      {R"("A": {"zone": "L1", "name": ""}, "B": {"zone": "L1", "name": "a\u001b[2J"})", {"A name: ", "B name: "}},
      {R"("A": {"zone": "L1"}, "B": {"zone": "L1", "zone": "L2"}, "A": {"zone": "L3"}, "\u0041": {"zone": "L4"})",
       {"B zone: stands there twice, again on line 1", "A: stands there twice", "A: stands there twice"}},
      {R"("A": {"zone": "L1/A", "shows": {"left": ["L2", "l1/a", "A"]}}, "B": {"zone": "L1/A"})",
       {"A shows.left: A holds no device; did you mean L1/A?", "A shows.left: L2 holds no device",
        "A shows.left: l1/a holds no device; did you mean L1/A?"}},
      {R"("A": {"zone": "L1", "shows": {"left": ["L2", "L2/B", "L2-B", "L2"], "right": ["L2"]}}, "B": {"zone": "L2/B"},)"
       R"("C": {"zone": "L2-B"})",
       {"A shows.left: L2 stands there twice", "A shows.left: L2/B is within L2, which stands there too"}},
      {R"("A": {"zone": "L1", "shows": {"left": ["L1"]}})",
       {"A shows.left: shows nothing: its zones hold no other device than this one"}},
      {R"("A": {"zone": "L1", "shows": {"left": ["L1"]}}, "B": {"zone": "L1/C", "shows": {"front": ["L1"]}})", {}},
      {"", {"devices: there are none"}},
  };
  for (const auto& [devices, parts] : kRows) {
    const std::string said = Check(R"({"site": "g", "devices": {)" + devices + "}}");
    const auto lines = static_cast<size_t>(std::count(said.begin(), said.end(), '\n'));
    EXPECT_EQ(lines, parts.size()) << devices << "\n" << said;
    for (const std::string& part : parts) EXPECT_NE(said.find(part), std::string::npos) << part << "\n" << said;
  }
  const std::pair<const char*, const char*> kFiles[] = {
      {R"({"site": "my garage", "devices": {"A": {"zone": "L1"}}})", "site: "},
      {R"({"devices": {"A": {"zone": "L1"}}})", "site: "},
      {R"({"site": "g", "devices": {"A": {"zone": "L1"}}, "device": {}})", "device: "},
      {R"({"site": "g"})", "devices: "},
      {R"([])", "needed"},
      {R"({"site": "g", "devices": {"A": {"zone": "L1"})", "cut off"},
      {"", "empty"},
  };
  for (const auto& [file, part] : kFiles) EXPECT_NE(Check(file).find(part), std::string::npos) << Check(file);
}

TEST(SiteFile, NobodyIsGivenMoreThanCanBeCounted) {
  const auto devices = [](size_t count, const char* zone) {
    Site site;
    site.name = "g";
    for (size_t i = 0; i < count; ++i) site.devices["d" + std::to_string(i)].zone = zone;
    return site;
  };
  const auto check = [](const Site& site) {
    std::vector<Mistake> mistakes;
    CheckSite(site, mistakes);
    return All(mistakes);
  };
  Site large = devices(16385, "L1");
  large.devices["d0"].shows[businessserver::kLeft] = {"L1"};
  EXPECT_EQ(check(large), "");
  large.devices["more"].zone = "L1";
  EXPECT_EQ(check(large), "d0 shows.left: counts 16385 devices, a relay takes 16384\n");

  Site huge = devices(349525, "L1");
  huge.devices["d0"].shows[businessserver::kLeft] = {"L1"};
  EXPECT_EQ(check(huge).find("spaces"), std::string::npos);
  huge.devices["more"].zone = "L1";
  EXPECT_NE(check(huge).find("d0 shows: counts 1048578 spaces in all, a device believes 1048576"), std::string::npos);

  Site wordy = devices(1, "L1");
  for (int i = 0; i < 5000; ++i) {
    const std::string zone = "long-name-of-a-zone-" + std::to_string(i);
    wordy.devices["z" + std::to_string(i)].zone = zone;
    wordy.devices["d0"].shows[businessserver::kRight].push_back(zone);
  }
  EXPECT_NE(check(wordy).find("a hub takes 65536"), std::string::npos);
}

TEST(SiteFile, ASpreadsheetBecomesOne) {
  const std::string wanted =
      R"({"devices":{"A":{"name":"Nord, \"links\"","shows":{"left":["L1/B","L2"]},"zone":"L1/A"},)"
      R"("B":{"zone":"L1/B"},"C":{"shows":{"front":["L1"]},"zone":"L2"}},"site":"g"})";
  const char* const kSheets[] = {
      "device,name,zone,left,right,front,group\r\nA,\"Nord, \"\"links\"\"\",L1/A,L1/B "
      "L2,,,\r\nB,,L1/B,,,,\r\n\r\nC,,L2,,,L1,\r\n",
      "\xEF\xBB\xBF"
      "Zone;Device;Left;Front;Name\nL1/A;A;\"L1/B;L2\";;\"Nord, \"\"links\"\"\"\nL1/B;B\nL2; C ;;L1;",
      "device\tzone\tleft\tname\tfront\t\nA\tL1/A\tL1/B|L2\t\"Nord, \"\"links\"\"\"\t\t\nB\tL1/B\nC\tL2\t\t\tL1",
  };
  for (const char* sheet : kSheets) {
    std::vector<Mistake> mistakes;
    const Site read = site::ImportCsv(sheet, "g", mistakes);
    EXPECT_EQ(All(mistakes), "") << sheet;
    std::string text = businessserver::StyledText(SiteDocument(read));
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == '\n' || c == '\t'; }), text.end());
    Json::Value expected, found;
    ASSERT_TRUE(businessserver::ParseJson(wanted, expected) && businessserver::ParseJson(text, found));
    EXPECT_EQ(found, expected) << sheet << "\n" << text;
  }
  const std::pair<const char*, const char*> kWrong[] = {
      {"", "nothing"},
      {"device,name\nA,x\n", "the column zone is missing"},
      {"device,zone,level\n", "no column 'level'"},
      {"device,zone,zone\n", "zone is there twice"},
      {"device,zone\nA,L1\nA,L2\n", "A line 3: is there twice"},
      {"device,zone\n,L1\n", "line 2: no device"},
      {"device,zone\nA,L1,L2\n", "A line 2: more cells"},
      {"device,zone\nA,L 1\nB,\n", "B zone: "},
      {"device,zone\n\"a\nb\",L1\nC,L 1", "a\\x0Ab: is no name"},
      {"device,zone,name\nA,L1,Stra\xDF"
       "e\n",
       "A name: "},
  };
  for (const auto& [sheet, said] : kWrong) {
    std::vector<Mistake> mistakes;
    site::ImportCsv(sheet, "g", mistakes);
    EXPECT_NE(All(mistakes).find(said), std::string::npos) << sheet << "\n" << All(mistakes);
  }
}

TEST(SiteFile, TheDifferenceToAHubIsNamedFieldByField) {
  std::vector<Mistake> mistakes;
  const Site garage = site::ReadSite(std::string_view(kGarage), mistakes);
  const std::map<std::string, std::string> kept = {
      {"ENT", R"({"name": "Einfahrt", "zone": "ENT", "shows": {"right": ["L2/B", "L2/A"], "front": ["L3"]}})"},
      {"GONE", R"({"zone": "L1"})"},
      {"L1-1", R"({"zone": "L1", "of": "another planner"})"},
      {"L1-2", "not JSON"},
      {"L2-A", R"({"zone": "L2/A", "shows": {"left": []}})"},
  };
  std::string text;
  for (const site::Change& change : Difference(garage, kept)) {
    text += change.device + " " + std::to_string(static_cast<int>(change.kind)) + "\n";
    for (const std::string& line : change.lines) text += "  " + line + "\n";
  }
  EXPECT_EQ(text,
            "ENT 1\n  ~ name: Einfahrt -> Einfahrt Süd\n  + shows.left: L1\n  - shows.front: L3\n"
            "GONE 2\n"
            "L1-2 1\n  ~ the plan on the hub cannot be read\n"
            "L2-B 0\n  + zone: L2/B\n");
}

TEST(SiteFile, TheTreeSaysWhoShowsWhat) {
  std::vector<Mistake> mistakes;
  Site garage = site::ReadSite(std::string_view(kGarage), mistakes);
  EXPECT_EQ(TreeText(garage),
            "garage: 5 devices in 5 zones\n"
            "ENT     1 device\n    ENT   Einfahrt Süd  shows left L1, right L2/A L2/B\n"
            "L1      2 devices, shown by ENT left, L1-2 group\n    L1-1\n    L1-2                shows group L1\n"
            "L2      2 devices\n"
            "  L2/A  1 device, shown by ENT right\n      L2-A\n"
            "  L2/B  1 device, shown by ENT right\n      L2-B\n");
  garage.devices["ENT"].name = "a \"b\" \\";
  const std::string dot = DotText(garage);
  EXPECT_NE(dot.find("\"ENT\" [label=\"a \\\"b\\\" \\\\\"];"), std::string::npos) << dot;
  EXPECT_NE(dot.find("\"ENT\" -> \"zone L2/A\" [label=\"right\"];"), std::string::npos) << dot;
}

}  // namespace
