// The tables of the store's file, and how an older file gets them.
#pragma once

#include "mgmtd/store/database.h"

namespace mgmtd {

/// The version that this program writes; a file says its own in PRAGMA user_version.
int64_t SchemaVersion();
/// The version of an open file; 0: it has no tables yet.
int64_t VersionOf(Database *database);
/// Bring the file to SchemaVersion(), in one transaction.
void Migrate(Database *database);

}  // namespace mgmtd
