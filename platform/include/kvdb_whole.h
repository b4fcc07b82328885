// The store as a whole, for tools: the daemon knows its documents one by one (kvdb.h). Between Kvdb_Start and
// Kvdb_Stop.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "kvdb.h"

// Keys and values as counted bytes.
using KvdbDocuments = std::vector<std::pair<std::string, std::string>>;

enum class KvdbPart {
  kStore,
  kUnreadable,  // what Kvdb_KeepUnreadable has kept
};

// Adds every document of a part, in the order of its keys; one that another process takes away meanwhile is left out.
// 1 on success, -1 when not all of them could be read.
int Kvdb_ReadAll(KvdbPart part, KvdbDocuments* documents);

// Makes the store hold these documents and no others: all of them or, on failure and also when the power fails, none.
// 1 on success, -1 on failure and for no documents at all.
int Kvdb_ReplaceAll(const KvdbDocuments& documents);
