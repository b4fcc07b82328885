#include <iostream>

#include "console.h"
#include "migrations.h"
#include "stored_text.h"

namespace parkctl {

int MigrateStore(const Migrations& migrations, uint16_t store_port) {
  const Store store(store_port);
  KvdbDocuments documents;
  if (!store.IsUp() || Kvdb_ReadAll(KvdbPart::kStore, &documents) != 1) return store.Explain();
  const MigrationResult result = Migrate(migrations, documents);
  if (!result.problem.empty()) {
    Note(result.problem);
    return kRefused;
  }
  if (!result.changed) return kDone;
  if (Kvdb_ReplaceAll(documents) != 1) {
    Note("the store did not take the documents in their new form and is as it was: its own log says why");
    return kNoAnswer;
  }
  for (const std::string& line : result.lines) std::cout << line << "\n";
  return kDone;
}

}  // namespace parkctl
