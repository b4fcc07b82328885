#include "plain_words.h"

#include <arpa/inet.h>
#include <iconv.h>

#include <charconv>
#include <cstdio>
#include <ctime>
#include <iterator>

#include "devicesdk/led_control.h"
#include "protocol/frame_info.h"
#include "shown_text.h"

namespace words {

namespace {

class Converter {
 public:
  Converter(const char* to, const char* from) : descriptor_(iconv_open(to, from)) {}
  ~Converter() {
    if (Ready()) iconv_close(descriptor_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // The comparison that the interface of iconv_open asks for.
  bool Ready() const { return descriptor_ != reinterpret_cast<iconv_t>(-1); }  // NOLINT(performance-no-int-to-ptr)

  // Converts up to the first character that does not convert, appends the result to out, and returns the rest.
  std::string_view Run(std::string_view text, std::string& out) {
    if (!Ready()) return text;
    char* in = const_cast<char*>(text.data());  // iconv's signature; it does not write there
    size_t left = text.size();
    char buffer[256];
    while (left > 0) {
      char* end = buffer;
      size_t room = sizeof buffer;
      const size_t left_before = left;
      const size_t result = iconv(descriptor_, &in, &left, &end, &room);
      out.append(buffer, static_cast<size_t>(end - buffer));
      if (result != static_cast<size_t>(-1) || left == left_before) break;
    }
    iconv(descriptor_, nullptr, nullptr, nullptr, nullptr);
    return text.substr(text.size() - left);
  }

 private:
  iconv_t descriptor_;
};

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

constexpr const char* kPositions[] = {"own", "left", "right", "front"};
static_assert(businessserver::kOwnGroup == 0 && businessserver::kLeft == 1 && businessserver::kRight == 2 &&
              businessserver::kFront == 3);

constexpr uint32_t kLines[] = {businessserver::kLedLine1, businessserver::kLedLine2, businessserver::kLedLine3};

}  // namespace

std::string GbkToUtf8(std::string_view gbk) {
  Converter converter("UTF-8", "GBK");
  std::string utf8;
  while (!gbk.empty()) {
    gbk = converter.Run(gbk, utf8);
    if (gbk.empty()) break;
    utf8 += '?';
    gbk.remove_prefix(1);
  }
  return utf8;
}

bool Utf8ToGbk(std::string_view utf8, std::string& gbk) {
  Converter converter("GBK", "UTF-8");
  std::string converted;
  if (!converter.Run(utf8, converted).empty()) return false;
  gbk = converted;
  return true;
}

std::string Printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const size_t length = ShownLength(text);
    if (length > 0) {
      out.append(text.substr(0, length));
    } else {
      out += "\\x" + HexText(text.data(), 1);
    }
    text.remove_prefix(length > 0 ? length : 1);
  }
  return out;
}

std::string AddressText(uint32_t ip) {
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &ip, text, sizeof text);
  return text;
}

bool ParseAddress(const std::string& text, uint32_t& ip) {
  in_addr address;
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) return false;
  ip = address.s_addr;
  return true;
}

std::string TimeText(uint32_t seconds) {
  const time_t when = static_cast<time_t>(seconds);
  tm parts = {};
  localtime_r(&when, &parts);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}

const char* SpaceStateName(int state) {
  static constexpr const char* kNames[] = {"free", "occupied", "reserved", "alarm"};
  return state >= 0 && state < static_cast<int>(sizeof kNames / sizeof kNames[0]) ? kNames[state] : "unknown";
}

std::string LedColorText(int color) {
  const auto pattern = businessserver::LedPattern(color);
  return std::to_string(color) +
         (pattern ? " (" + LedRegisterText(*pattern) + ")" : " (no such colour, the lamp stays as it is)");
}

std::string LedRegisterText(uint32_t data_register) {
  if (data_register == 0) return "off";
  if (data_register == businessserver::LedPattern(businessserver::kWhite)) return "all lines";
  std::string lines;
  uint32_t others = data_register;
  for (size_t i = 0; i < std::size(kLines); ++i) {
    if ((data_register & kLines[i]) == 0) continue;
    lines += (lines.empty() ? "" : "+") + std::to_string(i + 1);
    others &= ~kLines[i];
  }
  if (!lines.empty()) lines = (lines.size() > 1 ? "lines " : "line ") + lines;
  if (others == 0) return lines;
  char text[32];
  snprintf(text, sizeof text, "other bits 0x%02X", static_cast<unsigned>(others));
  return lines.empty() ? text : lines + ", " + text;
}

bool ParsePosition(const std::string& word, uint32_t& position) {
  for (uint32_t i = 0; i < std::size(kPositions); ++i) {
    if (word != kPositions[i]) continue;
    position = i;
    return true;
  }
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), position);
  return error == std::errc() && end == word.data() + word.size();
}

std::string PositionName(uint32_t position) {
  return position < std::size(kPositions) ? kPositions[position] : "position " + std::to_string(position);
}

std::string HexText(const void* bytes, size_t size) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    const uint8_t byte = static_cast<const uint8_t*>(bytes)[i];
    if (i > 0) text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

bool ParseHex(const std::string& text, std::string& bytes) {
  static constexpr char kBlanks[] = " \t\r\n";
  std::string parsed;
  for (size_t at = text.find_first_not_of(kBlanks); at < text.size(); at = text.find_first_not_of(kBlanks, at)) {
    size_t end = text.find_first_of(kBlanks, at);
    if (end == std::string::npos) end = text.size();
    if (end - at > 2 && text[at] == '0' && (text[at + 1] == 'x' || text[at + 1] == 'X')) at += 2;
    if ((end - at) % 2 != 0 && end - at != 1) return false;  // which digit is alone cannot be known
    for (size_t step = end - at == 1 ? 1 : 2; at < end; at += step) {
      const int high = step == 1 ? 0 : HexDigit(text[at]);
      const int low = HexDigit(text[at + step - 1]);
      if (high < 0 || low < 0) return false;
      parsed += static_cast<char>(high << 4 | low);
    }
  }
  bytes = parsed;
  return true;
}

}  // namespace words
