// Gone with all that is in it at the end of its scope.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

struct TemporaryDirectory {
  TemporaryDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "business_server_test.XXXXXX";
    path = mkdtemp(name.data());
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::filesystem::path path;
};
