// "parkctl report": what is in it, what is masked, and that it is there in time whatever does not answer.
#include "../real_platform.h"
#include "parkctl_on_desk.h"

namespace {

using ReportOnDesk = ParkctlOnDesk;

constexpr char kUnpack[] = " && rm -rf r && mkdir r && tar -xzf r.tar.gz -C r --strip-components=1 && cat r/*";

TEST_F(ReportOnDesk, HoldsWhatAHelperAsksForAndNobodysSecrets) {
  contract_.Ignore("documents/ibc_name_value");
  const Row kRows[] = {
      {"parkctl request set_enc_cfg '{\"level\":1,\"data\":\"c2VjcmV0\",\"data_len\":6}'", 0, "200"},
      {"parkctl request --force set_parking_reserve_cfg '{\"reservecfg\":{\"reserve\":[{\"plate\":\"ZZ9PLATE\"}]}}'", 0,
       "200"},
      {"parkctl result --space 1 --occupied --plate ZZ9PLATE", 0, "ZZ9PLATE"},
      {"redis-cli -p 5299 hset kvdb VENDOR ZZ9PLATE >/dev/null; printf 'ibc_name_value\\0' >key; "
       "redis-cli -p 5299 eval 'return redis.call(\"hset\", \"kvdb\", \"ibc_name_value\\0\", ARGV[1])' 0 "
       "'{\"name\": \"ZZ9PLATE\", \"x\": 17,}' >/dev/null; parkctl request get_ibc_name",
       0, "ibeacon"},
      {"parkctl store unreadable", 0,
       "ibc_name_value  (Missing '}' or object member name at byte 29)\n{\"name\": \"ZZ9PLATE\""},
      {"parkctl report r.tar.gz", 0, "r.tar.gz: "},
  };
  for (const Row& row : kRows) RunRow(row);
  const std::string all = Run("true" + std::string(kUnpack)).output;
  const char* const kParts[] = {
      "made 2",                                      // README.txt
      "documents.txt  every document of the store",  // and its table
      "done in",
      "parkctl          ",       // versions
      "load average",            // system
      "\"data\": \"(masked)\"",  // documents
      "\"plate\": \"(masked)\"",
      "bus_dev_pos_value:\n{\n  \"pos\": 0\n}",
      "VENDOR:\n8 bytes, not shown",
      "ibc_name_value:\nMissing '}' or object member name at byte 29\n{\"name\": \"***\", \"x\": 17,}",
      "quary_controled_log:\n200 All done",
  };
  for (const char* part : kParts) EXPECT_NE(all.find(part), std::string::npos) << part << " in " << all;
  for (const char* secret : {"c2VjcmV0", "ZZ9PLATE"}) EXPECT_EQ(all.find(secret), std::string::npos) << secret;
  RunRow({"stat -c %a r.tar.gz; parkctl report - | tar -tz | grep -c README.txt", 0, "600\n1\n"});
}

TEST_F(ReportOnDesk, IsThereInTimeWhateverDoesNotAnswer) {
  // A program that never ends is ended with all that it started.
  RunRow(
      {"mkdir -p bin; printf '#!/bin/sh\\nsleep 1000 & echo $$ $! >>pids; wait\\n' >bin/systemctl; chmod +x "
       "bin/systemctl",
       0, nullptr});
  desk_.broker().Freeze();
  desk_.store().Freeze();
  const auto start = Clock::now();
  RunRow({"PATH=$PWD/bin:$PATH parkctl report r.tar.gz --limit-ms 2500", 0,
          "documents.txt: NOT ALL OF IT: ended with status 2"});
  EXPECT_LT(SecondsSince(start), 10);
  RunRow({("true" + std::string(kUnpack)).c_str(), 0,
          "units.txt  services, their restarts and their limits\n    NOT ALL OF IT: took longer than 2.5 s"});
  RunRow(
      {"for pid in $(cat pids); do case $(cut -d ' ' -f 3 /proc/$pid/stat) in ''|Z) ;; *) exit 1;; esac; done "
       "2>/dev/null",
       0, nullptr});
  desk_.broker().Thaw();
  desk_.store().Thaw();
  for (desk::Process* process : {&desk_.daemon(), &desk_.broker(), &desk_.store()}) desk_.StopProcess(*process);
  RunRow({("parkctl report r.tar.gz" + std::string(kUnpack)).c_str(), 0, "Is it up (redis-server)?"});
  // No room for the archive: the old one stays. No room for its parts on a disk: memory has some.
  RunRow(
      {"cp r.tar.gz old; trap '' XFSZ; (ulimit -f 0; TMPDIR=/nonexistent parkctl report r.tar.gz); cmp old r.tar.gz && "
       "ls",
       0, "there is no room"});
}

}  // namespace
