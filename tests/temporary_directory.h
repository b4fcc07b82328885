// Gone with all that is in it at the end of its scope.
#pragma once

#include <cstdlib>
#include <filesystem>

struct TemporaryDirectory {
  TemporaryDirectory() {
    char name[] = "/tmp/business_server_test.XXXXXX";
    path = mkdtemp(name);
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path); }
  std::filesystem::path path;
};
