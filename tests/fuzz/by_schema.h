// JSON texts that are made along a schema, each choice by a byte of the input: so bytes get as deep as the schema goes.
// Nearly all of them are valid; whoever must know asks the checker.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fuzz {

class Bytes {
 public:
  explicit Bytes(std::string_view rest) : rest_(rest) {}

  bool Left() const { return !rest_.empty(); }
  uint8_t Next();  // 0 when none is left
  size_t Below(size_t limit) { return limit == 0 ? 0 : Next() % limit; }

 private:
  std::string_view rest_;
};

// A schema, read once.
class Form {
 public:
  explicit Form(const Json::Value& schema);

  std::string Text(Bytes& bytes) const;

 private:
  enum class Kind { kFixed, kOneOf, kNumber, kTruth, kText, kBase64, kHexBytes, kList, kObject };
  struct Member {
    std::string name;
    bool required;
    int bytes_of, at_most;  // members before it that it goes by; -1: none
  };

  // Appends the text. Returns what other members may go by: a number, or the bytes that a base64 text stands for.
  int64_t Write(Bytes& bytes, std::string& out) const;
  int64_t WriteNumber(Bytes& bytes, std::string& out) const;
  int64_t WriteBase64(Bytes& bytes, std::string& out) const;
  void WriteText(Bytes& bytes, std::string& out) const;
  void WriteList(Bytes& bytes, std::string& out) const;
  void WriteObject(Bytes& bytes, std::string& out) const;
  size_t Length(Bytes& bytes) const;

  Kind kind_ = Kind::kObject;
  std::vector<std::string> choices_;  // kFixed, and texts whose pattern allows only some
  std::vector<Form> parts_;           // kOneOf: alternatives; kList: the entry; kObject: of members_
  std::vector<Member> members_;
  bool one_member_ = false;
  int64_t least_ = 0, most_ = 0;  // number, or length of text or list
  size_t most_bytes_ = 0;         // of a text
};

}  // namespace fuzz
