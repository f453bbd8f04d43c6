#pragma once

#include <agent/change/History.h>
#include <agent/state/Database.h>

#include <string>
#include <vector>

/// Stores the past of the configuration in database tables. All functions throw DatabaseError.
namespace Agent::PastTables {

/// The statements that make the tables. The database keeps their texts, so that they can be compared later.
/// A further one comes last.
std::vector<std::string> definitions();

Past read(Database& database);

/// Changes the tables, which have the past `before`, so that they have the past `now`. In a transaction of
/// the caller.
void write(Database& database, const Past& before, const Past& now);

}  // namespace Agent::PastTables
