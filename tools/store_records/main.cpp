// store_records FILE [NEW]   looks for damaged records in a part of the store's append-only file: those without a
// command or with one that nobody can give the store. The store ends at such a one, and its own tool lets it pass. With
// NEW all other records are written there. Exits with 0 when there is none, with 1 when there are, with 2 when it
// cannot tell.
//
// The format: commands as "*<words>\r\n", each word as "$<bytes>\r\n<bytes>\r\n". From where that is broken on, the
// rest is the other tool's and counts as whole.
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr size_t kLongestLine = 32;  // "$<bytes>\r\n", with room
constexpr size_t kLongestName = 16;
constexpr long kMostWords = 1024 * 1024;
constexpr std::streamoff kLongestWord = 512L * 1024 * 1024;

// What the store's users may do that changes it (redis.conf), and what the store puts around it.
constexpr const char* kCommands[] = {"HSET", "HDEL", "COPY", "DEL", "SELECT", "MULTI", "EXEC",
                                     // of other versions and owners' tools
                                     "HMSET", "HSETNX", "UNLINK", "RESTORE", "RENAME", "FLUSHALL", "FLUSHDB", "SET",
                                     "EXPIRE", "PEXPIREAT"};

struct Span {
  std::streamoff begin, end;
};

// "<mark><number>\r\n"
std::optional<long> ReadNumber(std::istream& file, char mark) {
  std::string line;
  for (char byte; line.size() < kLongestLine && file.get(byte) && byte != '\n';) line += byte;
  if (!file || line.size() < 3 || line[0] != mark || line.back() != '\r') return std::nullopt;
  char* end = nullptr;
  const long number = strtol(line.c_str() + 1, &end, 10);
  if (*end != '\r' || number < 0) return std::nullopt;
  return number;
}

// A word with the end of its line. Its text, when somebody wants it, up to so many bytes.
bool ReadWord(std::istream& file, std::string* text) {
  const std::optional<long> size = ReadNumber(file, '$');
  if (!size || *size > kLongestWord) return false;
  std::streamoff rest = *size;
  if (text != nullptr) {
    text->resize(std::min(static_cast<size_t>(rest), kLongestName));
    file.read(text->data(), static_cast<std::streamsize>(text->size()));
    rest -= static_cast<std::streamoff>(text->size());
  }
  file.ignore(rest);
  return file.get() == '\r' && file.get() == '\n';
}

bool IsKnown(const std::string& name) {
  return std::any_of(std::begin(kCommands), std::end(kCommands), [&](const char* command) {
    return name.size() == std::string(command).size() && strncasecmp(name.data(), command, name.size()) == 0;
  });
}

// Where the damaged records are.
std::vector<Span> Damaged(std::istream& file) {
  std::vector<Span> damaged;
  for (;;) {
    const std::streamoff begin = file.tellg();
    const std::optional<long> words = ReadNumber(file, '*');
    if (!words || *words > kMostWords) break;
    std::string name;
    bool whole = *words == 0 || ReadWord(file, &name);
    for (long i = 1; whole && i < *words; ++i) whole = ReadWord(file, nullptr);
    if (!whole) break;
    if (!IsKnown(name)) damaged.push_back({begin, file.tellg()});
  }
  return damaged;
}

bool CopyWithout(const std::vector<Span>& damaged, std::istream& file, std::streamoff size, std::ostream& copy) {
  std::vector<char> chunk(65536);
  file.clear();
  std::streamoff at = 0;
  for (size_t i = 0; i <= damaged.size(); ++i) {
    const std::streamoff end = i < damaged.size() ? damaged[i].begin : size;
    file.seekg(at);
    while (at < end) {
      const auto wanted = std::min<std::streamoff>(end - at, static_cast<std::streamoff>(chunk.size()));
      if (!file.read(chunk.data(), wanted) || !copy.write(chunk.data(), wanted)) return false;
      at += wanted;
    }
    if (i < damaged.size()) at = damaged[i].end;
  }
  return static_cast<bool>(copy.flush());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    fprintf(stderr, "store_records FILE [NEW]\n");
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary | std::ios::ate);
  const std::streamoff size = file.tellg();
  file.seekg(0);
  if (!file) {
    fprintf(stderr, "store_records: cannot read %s\n", argv[1]);
    return 2;
  }
  const std::vector<Span> damaged = Damaged(file);
  if (damaged.empty()) return 0;
  if (argc == 3) {
    std::ofstream copy(argv[2], std::ios::binary | std::ios::trunc);
    if (!CopyWithout(damaged, file, size, copy)) {
      fprintf(stderr, "store_records: cannot write %s\n", argv[2]);
      return 2;
    }
  }
  return 1;
}
