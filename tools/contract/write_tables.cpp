// contract_tables [--check | --version] PAGE...: writes the tables of pages anew from contract/, or says which are
// stale.
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>

#include "build_identity/build.h"
#include "contract/tables.h"

int main(int argc, char** argv) {
  const bool only_check = argc > 1 && strcmp(argv[1], "--check") == 0;
  if (argc > 1 && strcmp(argv[1], "--version") == 0) {
    std::cout << build::Line("contract_tables") << "\n";
    return 0;
  }
  bool stale = false;
  try {
    for (int i = only_check ? 2 : 1; i < argc; ++i) {
      std::ostringstream page;
      page << std::ifstream(argv[i]).rdbuf();
      const std::string fresh = contract::WithTables(page.str());
      if (fresh == page.str()) continue;
      stale = true;
      std::cout << argv[i] << (only_check ? ": stale, contract_tables writes it anew\n" : ": written\n");
      if (!only_check && !(std::ofstream(argv[i]) << fresh)) throw std::runtime_error("it cannot be written");
    }
  } catch (const std::exception& error) {
    std::cerr << "contract_tables: " << error.what() << "\n";
    return 2;
  }
  return only_check && stale ? 1 : 0;
}
