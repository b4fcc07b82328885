// The store's files after a bad medium: a session is recorded with the real device, then each of its files is cut after
// every byte, and every byte is flipped in one bit. Each time the store starts as its unit does (store-repair first),
// and what it has then is held against what was acknowledged. Prints a table and every breach; exits nonzero when there
// was one.
//   store_file [--every N] [--seconds S] [--workers N] [--daemon PROGRAM] [--packaging DIRECTORY]
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "protocol/commands.h"
#include "protocol/names.h"
#include "protocol/parking_result.h"
#include "traffic.h"
#include "workers.h"

namespace {

namespace bs = businessserver;
namespace fs = std::filesystem;
using trials::Loop;
using trials::Milliseconds;
using trials::Notes;
using trials::Rig;

constexpr char kParts[] = "appendonlydir";
constexpr int kAgainEvery = 8;  // cases: this often the store is written to, killed and started once more

struct Set {
  const char* command;
  const char* body;
};
// Every document that is set over the bus, some twice.
constexpr Set kSession[] = {
    {bs::kSetParkingReserveCfg, R"({"reservecfg":{"reservenum":0,"reserve":[]}})"},
    {bs::kSetEncCfg, R"({"level":1,"data":"cTdXbTRadDJQ","data_len":9})"},
    {bs::kSetTtyioCfg, R"({"ttyionum":2,"baudrate":9600,"checkbit":0,"databit":8,"stopbit":1})"},
    {bs::kSetExtTtyioCfg, R"({"ttyionum":1,"baudrate":9600,"checkbit":0,"databit":8,"stopbit":1})"},
    {bs::kSetDevPos, R"({"pos":1})"},
    {bs::kSetRs485proCfg, R"({"pro_cfg":[{"header":"BB88"},{"license":1},{"end":"33"}]})"},
    {bs::kSetParkingColorCfg, R"({"parkingledcolorcfg":{"parkingfreeledcolor":1,"parkingoccupyledcolor":0}})"},
    {bs::kSetParkingColorCfg, R"({"parkingledcolorcfg":{"parkingfreeledcolor":3,"parkingoccupyledcolor":0}})"},
    {bs::kSetDevPos, R"({"pos":2})"},
};

using Documents = std::map<std::string, std::string>;

// One command in the append-only file.
struct Record {
  size_t begin = 0, end = 0;
  std::string key, value;  // empty: it sets no document
};

std::string Contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// "<mark><number>\r\n" at a place, which moves behind it.
size_t NumberAt(const std::string& bytes, size_t& at, char mark) {
  if (at >= bytes.size() || bytes[at] != mark) return 0;
  const size_t number = strtoul(bytes.c_str() + at + 1, nullptr, 10);
  at = bytes.find('\n', at) + 1;
  return number;
}

// The format of the append-only file: arrays of counted texts.
std::vector<Record> Records(const std::string& bytes) {
  std::vector<Record> records;
  for (size_t at = 0; at < bytes.size();) {
    Record record;
    record.begin = at;
    std::vector<std::string> words(NumberAt(bytes, at, '*'));
    for (std::string& word : words) {
      const size_t size = NumberAt(bytes, at, '$');
      word = bytes.substr(at, size);
      at += size + 2;
    }
    record.end = at;
    if (words.size() == 4 && words[0] == "HSET") {
      record.key = words[2];
      record.value = words[3];
    }
    records.push_back(record);
    if (words.empty()) break;
  }
  return records;
}

Documents After(const std::vector<Record>& records, size_t count) {
  Documents documents;
  for (size_t i = 0; i < count; ++i) {
    if (!records[i].key.empty()) documents[records[i].key] = records[i].value;
  }
  return documents;
}

struct Case {
  fs::path file;  // its name
  size_t at;
  bool flips;  // else it is cut there
};

std::string NameOf(const Case& damage) {
  return damage.file.string() + (damage.flips ? " flipped at " : " cut at ") + std::to_string(damage.at);
}

void Apply(const Case& damage, const fs::path& parts) {
  std::string bytes = Contents(parts / damage.file);
  if (damage.flips) {
    bytes[damage.at] = static_cast<char>(bytes[damage.at] ^ 1 << damage.at % 8);
  } else {
    bytes.resize(damage.at);
  }
  std::ofstream(parts / damage.file, std::ios::binary | std::ios::trunc) << bytes;
}

// What the device has afterwards, in the words of the table.
constexpr const char* kOutcomes[] = {"everything", "up to the damage", "one document wrong", "set aside"};

class Store {
 public:
  Store(const trials::Programs& programs, fs::path recorded)
      : recorded_(std::move(recorded)),
        device_(loop_, {directory_.path, programs.daemon, programs.packaging, true}),
        repair_("PATH=" + fs::absolute(programs.daemon).parent_path().string() + ":$PATH sh " +
                fs::absolute(programs.packaging).string() + "/store-repair " + device_.StoreDirectory() + " >" +
                directory_.path.string() + "/repair.log 2>&1") {
    std::string problem;
    device_.MakeFiles(problem);
    for (const auto& entry : fs::directory_iterator(recorded_ / kParts)) {
      if (entry.path().string().find(".incr.aof") == std::string::npos) continue;
      newest_ = entry.path().filename();
      records_ = Records(Contents(entry.path()));
    }
    all_ = After(records_, records_.size());
  }

  // What it has after that damage; empty after a breach.
  std::string Try(const Case& damage, bool again) {
    const fs::path store = device_.StoreDirectory();
    device_.store.Kill();
    fs::remove_all(store);
    fs::create_directories(store);
    fs::copy(recorded_ / kParts, store / kParts);
    Apply(damage, store / kParts);
    Documents documents;
    if (!StartAndRead(documents)) return Breach(damage, "the store does not start: " + problem_);
    const std::optional<std::string> outcome = Outcome(damage, documents);
    if (!outcome)
      return Breach(damage, "of " + std::to_string(all_.size()) + " documents it has " + Difference(documents));
    if (again && !KeepsWhatFollows()) return Breach(damage, "what was set after it is lost: " + problem_);
    return *outcome;
  }

 private:
  std::string Breach(const Case& damage, const std::string& what) {
    trials::Breach(NameOf(damage) + ": " + what);
    return "";
  }

  // As the unit does it, and once more when it fails, as the supervisor does.
  bool StartAndRead(Documents& documents) {
    bool runs = false;
    problem_ = "the repair fails";
    for (int attempt = 0; attempt < 2 && !runs; ++attempt) {
      runs = system(repair_.c_str()) == 0 && device_.StartAndAwait(device_.store, problem_);
    }
    if (!runs) return false;
    desk::StoreClient client;
    if (!loop_.RunUntil([&] { return client.Ping(); }, trials::kReturnLimit)) {
      problem_ = "it does not answer";
      return false;
    }
    for (const auto& [key, value] : all_) {
      std::string text;
      if (client.Get(key, text)) documents[key] = text;
    }
    return true;
  }

  bool KeepsWhatFollows() {
    const std::string key = all_.begin()->first;
    if (!desk::StoreClient().Set(key, "later")) return false;
    device_.store.Kill();
    Documents documents;
    return StartAndRead(documents) && documents[key] == "later";
  }

  std::optional<std::string> Outcome(const Case& damage, const Documents& documents) const {
    if (documents == all_) return kOutcomes[0];
    if (damage.file != newest_) {
      const bool kept = fs::exists(device_.StoreDirectory() + "/" + kParts + ".damaged.1");
      return documents.empty() && kept ? std::optional<std::string>(kOutcomes[3]) : std::nullopt;
    }
    size_t whole = 0;
    while (whole < records_.size() && records_[whole].end <= damage.at) ++whole;
    for (size_t count = whole; count < records_.size(); ++count) {
      if (documents == After(records_, count)) return kOutcomes[1];
    }
    // The file has no checksums: a bit within a text goes by, and one in a length can join a text with what follows it.
    if (!damage.flips || whole == records_.size()) return std::nullopt;
    const auto without_its_own = [&](Documents from) {
      from.erase(records_[whole].key);
      return from;
    };
    for (size_t count = whole; count <= records_.size(); ++count) {
      if (without_its_own(documents) == without_its_own(After(records_, count))) return kOutcomes[2];
    }
    return std::nullopt;
  }

  std::string Difference(const Documents& documents) const {
    std::string text = std::to_string(documents.size()) + ", not as they were:";
    for (const auto& [key, value] : all_) {
      const auto found = documents.find(key);
      if (found == documents.end() || found->second != value) text += " " + std::string(key.c_str());
    }
    return text;
  }

  const TemporaryDirectory directory_;
  const fs::path recorded_;
  Loop loop_;
  desk::Device device_;
  const std::string repair_;
  fs::path newest_;
  std::vector<Record> records_;
  Documents all_;  // what the session acknowledged
  std::string problem_;
};

bool RecordSession(const trials::Programs& programs, const fs::path& recorded) {
  trials::EnterQuietNetwork();
  Rig rig(programs);
  if (!rig.Start()) return false;
  for (const Set& set : kSession) {
    if (rig.Await(set.command, set.body, trials::kReturnLimit) >= trials::kReturnLimit) return false;
    bs::LX_Parking_Result_Param record = {};
    record.spaces[0].valid = record.spaces[0].second_flag = record.spaces[0].space_status = 1;
    rig.Publish(bs::kAvsSimulatorTrigger, std::string(reinterpret_cast<const char*>(&record), sizeof record));
  }
  rig.device.Stop();
  fs::copy(rig.device.StoreDirectory() + "/" + kParts, recorded / kParts);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int every = 1, seconds = 0, workers = 2;
  trials::Programs programs;
  CLI::App app("Cuts and flips the store's files at every byte");
  app.add_option("--every", every, "only each so many-th of these")->check(CLI::Range(1, 1000000));
  app.add_option("--seconds", seconds, "at most; 0 for as long as it takes");
  app.add_option("--workers", workers, "stores side by side")->check(CLI::Range(1, 100));
  programs.AddOptions(app, "store_file");
  CLI11_PARSE(app, argc, argv);

  if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);  // nothing here is meant to stay
  const TemporaryDirectory recorded;
  const auto record = [&](int, const Notes&) { return RecordSession(programs, recorded.path) ? 0 : 1; };
  if (trials::Sum(trials::RunWorkers(1, record), "failed") > 0) return 1;

  std::vector<Case> cases;
  std::vector<std::pair<std::string, size_t>> files;
  for (const auto& entry : fs::directory_iterator(recorded.path / kParts)) {
    files.emplace_back(entry.path().filename().string(), fs::file_size(entry.path()));
    for (size_t at = 0; at < files.back().second; ++at) {
      for (const bool flips : {false, true}) {
        if ((at + (flips ? 1 : 0)) % static_cast<size_t>(every) == 0) cases.push_back({files.back().first, at, flips});
      }
    }
  }
  const auto start = Loop::Clock::now();
  const auto end = start + std::chrono::seconds(seconds);
  const trials::Tally tally = trials::RunWorkers(workers, [&](int worker, const Notes& notes) {
    trials::EnterQuietNetwork();
    Store store(programs, recorded.path);
    // Those that a limit leaves out are spread over all files.
    for (size_t turn = static_cast<size_t>(worker); turn < cases.size(); turn += static_cast<size_t>(workers)) {
      if (seconds > 0 && Loop::Clock::now() > end) break;
      constexpr size_t kStride = 7919;  // a prime that no session's length is a multiple of
      const Case& damage = cases[turn * kStride % cases.size()];
      const std::string outcome = store.Try(damage, turn / static_cast<size_t>(workers) % kAgainEvery == 0);
      const std::string row = damage.file.string() + (damage.flips ? " flip" : " cut");
      notes.Add(row, 1);
      if (!outcome.empty()) notes.Add(row + " " + outcome, 1);
    }
    return trials::Breaches() == 0 ? 0 : 1;
  });

  printf("| file | bytes | damage | tried |");
  for (const char* outcome : kOutcomes) printf(" %s |", outcome);
  printf("\n|---|---:|---|---:|---:|---:|---:|---:|\n");
  size_t tried = 0;
  for (const auto& [name, size] : files) {
    for (const char* damage : {"cut", "flip"}) {
      const std::string row = name + " " + damage;
      tried += static_cast<size_t>(trials::Sum(tally, row));
      printf("| `%s` | %zu | %s | %ld |", name.c_str(), size, damage, trials::Sum(tally, row));
      for (const char* outcome : kOutcomes) printf(" %ld |", trials::Sum(tally, row + " " + outcome));
      printf("\n");
    }
  }
  const long failed = trials::Sum(tally, "failed");
  const auto took = std::chrono::duration_cast<std::chrono::seconds>(Loop::Clock::now() - start).count();
  printf("\n%zu of %zu cases in %lld s; %s.\n", tried, cases.size(), static_cast<long long>(took),
         failed == 0 ? "no breach" : "BREACHES");
  return failed == 0 && tried > 0 ? 0 : 1;
}
