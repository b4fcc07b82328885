// The form of a stored document changes by a numbered migration, which each store goes through once. The number that a
// store has reached is one of its documents, so that it goes wherever they go: into backups and exports, and with them,
// in one command, into the store.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kvdb_whole.h"
#include "protocol/stored_documents.h"

namespace parkctl {

struct Migration {
  const businessserver::StoredDocument* document;
  // From the form before to the one after. One that is neither is left as it is, or Json::Exception thrown.
  void (*change)(Json::Value& document);
};
// The first has the number 1. Rows are added at the end and never changed: devices have been through them.
using Migrations = std::vector<Migration>;

const Migrations& ReleasedMigrations();

struct MigrationResult {
  std::string problem;             // empty: all is well
  std::vector<std::string> lines;  // what was done, for people
  bool changed = false;            // the documents, of which the number reached is one
};

// Takes the documents of a store through what it has not been through. Those of a later version are left as they are,
// and are the problem. A document that cannot be read is left to whoever reads it.
MigrationResult Migrate(const Migrations& migrations, KvdbDocuments& documents);

// The same with the store itself, all or nothing; says what was done. Returns the exit status.
int MigrateStore(const Migrations& migrations, uint16_t store_port);

}  // namespace parkctl
