// One connection to an SQLite file, its statements prepared once. For one thread at a time.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "mgmtd/store/storedEvent.h"

namespace mgmtd {

/// A StoreError of SQLite's with its primary result code.
struct DatabaseError : StoreError {
  DatabaseError(const std::string &text, int primaryCode) : StoreError(text), code(primaryCode) {}
  /// The bytes are not what a database has.
  bool IsDamage() const { return code == SQLITE_CORRUPT || code == SQLITE_NOTADB; }
  int code;
};

class Database;

/// A prepared statement at work; reset when it goes. Parameters are numbered from 1, columns from 0.
class Statement {
 public:
  Statement(Database *database, sqlite3_stmt *statement, bool owned = false)
      : database_(database), statement_(statement), owned_(owned) {}
  ~Statement();
  Statement(const Statement &) = delete;
  Statement &operator=(const Statement &) = delete;

  Statement &Bind(int parameter, int64_t value);
  Statement &Bind(int parameter, std::string_view text);  ///< copied
  Statement &BindBlob(int parameter, std::string_view bytes);
  /// True while there is a row.
  bool Step();
  /// Run to the end.
  void Run();
  void Reset();

  int64_t Integer(int column) const { return sqlite3_column_int64(statement_, column); }
  std::string Text(int column) const;
  bool IsNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }

 private:
  Database *const database_;
  sqlite3_stmt *const statement_;
  const bool owned_;
};

/// Throws DatabaseError from every call that fails.
class Database {
 public:
  enum class Mode { kRead, kReadUnchanging, kWrite };

  /// kReadUnchanging: nobody has the file open, and its folder can't be written.
  Database(const std::string &path, Mode mode);
  ~Database();
  Database(const Database &) = delete;
  Database &operator=(const Database &) = delete;

  void Execute(const char *sql);
  /// The first column of the first row; 0 when there is none.
  int64_t Number(const std::string &sql);
  /// The first column of the first row as text.
  std::string Word(const std::string &sql);
  /// Of `sql` there is one statement, kept for the next time: one user of it at a time.
  Statement Prepare(const std::string &sql);
  /// For a text that does not come again.
  Statement PrepareOnce(const std::string &sql);
  int Changes() { return sqlite3_changes(connection_); }
  sqlite3 *Connection() { return connection_; }
  [[noreturn]] void Throw(int result);

 private:
  sqlite3_stmt *Compile(const std::string &sql);

  const std::string path_;
  sqlite3 *connection_ = nullptr;
  std::map<std::string, sqlite3_stmt *> statements_;
};

/// All or nothing: rolled back when it goes without Commit.
class Transaction {
 public:
  explicit Transaction(Database *database);
  ~Transaction();
  Transaction(const Transaction &) = delete;
  Transaction &operator=(const Transaction &) = delete;
  void Commit();

 private:
  Database *database_;
};

}  // namespace mgmtd
