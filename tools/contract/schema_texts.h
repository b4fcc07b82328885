// The files of contract/, written into a source file when the tools are built.
#pragma once

#include <cstddef>
#include <string_view>

namespace contract {

struct SchemaText {
  std::string_view name;  // the path below contract/, without ".json"
  std::string_view text;
};

extern const SchemaText kSchemaTexts[];  // by name, in the order of their bytes
extern const size_t kSchemaTextCount;

}  // namespace contract
