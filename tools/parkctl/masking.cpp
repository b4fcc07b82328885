#include "masking.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace parkctl {

namespace {

constexpr char kMasked[] = "(masked)";
// "data" is the key of the encryption settings, and the bytes for a serial line.
constexpr const char* kSecretMembers[] = {"data", "plate", "password", "passwd", "secret", "token", "key"};

bool IsSecret(const std::string& member) {
  return std::find(std::begin(kSecretMembers), std::end(kSecretMembers), member) != std::end(kSecretMembers);
}

size_t TextEnd(std::string_view text, size_t at) {
  for (++at; at < text.size() && text[at] != '"'; ++at) {
    if (text[at] == '\\') ++at;
  }
  return std::min(at + 1, text.size());
}

bool IsNameOfMember(std::string_view text, size_t end) {
  const size_t next = text.find_first_not_of(" \t\r\n", end);
  return next != std::string_view::npos && text[next] == ':';
}

}  // namespace

Json::Value Masked(const Json::Value& document) {
  Json::Value masked = document;
  if (document.isObject()) {
    for (const std::string& name : document.getMemberNames()) {
      masked[name] = IsSecret(name) ? Json::Value(kMasked) : Masked(document[name]);
    }
  } else if (document.isArray()) {
    for (Json::ArrayIndex i = 0; i < document.size(); ++i) masked[i] = Masked(document[i]);
  }
  return masked;
}

std::string MaskedText(std::string_view text) {
  std::string masked;
  for (size_t at = 0; at < text.size();) {
    const auto c = static_cast<unsigned char>(text[at]);
    if (c == '"') {
      const size_t end = TextEnd(text, at);
      masked += IsNameOfMember(text, end) ? std::string(text.substr(at, end - at)) : "\"***\"";
      at = end;
      continue;
    }
    const bool shown = c == '\n' || c == '\t' || c == ' ' || (c < 0x7F && std::isalpha(c) == 0 && std::isprint(c) != 0);
    masked += shown ? static_cast<char>(c) : '*';
    ++at;
  }
  return masked;
}

}  // namespace parkctl
