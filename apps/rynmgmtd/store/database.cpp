// SQLite's C interface with owners and exceptions.
#include "mgmtd/store/database.h"

namespace mgmtd {
namespace {

constexpr int kBusyMs = 2000;  ///< only a schema change or another writer makes anybody wait

/// `path` as a URI: characters that mean something there escaped.
std::string Uri(const std::string &path, bool unchanging) {
  std::string uri = "file:";
  constexpr char kDigits[] = "0123456789abcdef";
  for (const char c : path) {
    if (c == '?' || c == '#' || c == '%') {
      const auto byte = static_cast<unsigned char>(c);
      uri += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    } else {
      uri += c;
    }
  }
  return unchanging ? uri + "?immutable=1" : uri;
}

}  // namespace

Statement::~Statement() {
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
  if (owned_) sqlite3_finalize(statement_);
}

Statement &Statement::Bind(int parameter, int64_t value) {
  sqlite3_bind_int64(statement_, parameter, value);
  return *this;
}

Statement &Statement::Bind(int parameter, std::string_view text) {
  sqlite3_bind_text64(statement_, parameter, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  return *this;
}

Statement &Statement::BindBlob(int parameter, std::string_view bytes) {
  sqlite3_bind_blob64(statement_, parameter, bytes.data(), bytes.size(), SQLITE_TRANSIENT);
  return *this;
}

bool Statement::Step() {
  const int result = sqlite3_step(statement_);
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) database_->Throw(result);
  return false;
}

void Statement::Run() {
  while (Step()) continue;
}

void Statement::Reset() {
  sqlite3_reset(statement_);
}

std::string Statement::Text(int column) const {
  const void *bytes = sqlite3_column_blob(statement_, column);
  const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
  return bytes == nullptr ? std::string() : std::string(static_cast<const char *>(bytes), size);
}

Database::Database(const std::string &path, Mode mode) : path_(path) {
  int flags = SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
  flags |= mode == Mode::kWrite ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
  const int result = sqlite3_open_v2(Uri(path, mode == Mode::kReadUnchanging).c_str(), &connection_, flags, nullptr);
  if (result != SQLITE_OK) {
    const std::string text = path + ": " + sqlite3_errstr(result);
    sqlite3_close(connection_);
    throw DatabaseError(text, result & 0xff);
  }
  sqlite3_busy_timeout(connection_, kBusyMs);
}

Database::~Database() {
  for (const auto &[sql, statement] : statements_) sqlite3_finalize(statement);
  sqlite3_close(connection_);
}

void Database::Execute(const char *sql) {
  if (const int result = sqlite3_exec(connection_, sql, nullptr, nullptr, nullptr); result != SQLITE_OK) Throw(result);
}

int64_t Database::Number(const std::string &sql) {
  Statement statement = Prepare(sql);
  return statement.Step() ? statement.Integer(0) : 0;
}

std::string Database::Word(const std::string &sql) {
  Statement statement = Prepare(sql);
  return statement.Step() ? statement.Text(0) : "";
}

Statement Database::Prepare(const std::string &sql) {
  sqlite3_stmt *&statement = statements_[sql];
  if (statement == nullptr) statement = Compile(sql);
  return {this, statement};
}

Statement Database::PrepareOnce(const std::string &sql) {
  return {this, Compile(sql), true};
}

sqlite3_stmt *Database::Compile(const std::string &sql) {
  sqlite3_stmt *statement = nullptr;
  const int result = sqlite3_prepare_v2(connection_, sql.c_str(), static_cast<int>(sql.size()), &statement, nullptr);
  if (result != SQLITE_OK) Throw(result);
  return statement;
}

void Database::Throw(int result) {
  std::string text = path_ + ": " + sqlite3_errmsg(connection_);
  if (sqlite3_system_errno(connection_) != 0 && (result & 0xff) == SQLITE_IOERR) {
    text += " (" + std::to_string(result) + ")";
  }
  throw DatabaseError(text, result & 0xff);
}

Transaction::Transaction(Database *database) : database_(database) {
  database_->Execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (database_ != nullptr) sqlite3_exec(database_->Connection(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::Commit() {
  database_->Execute("COMMIT");
  database_ = nullptr;
}

}  // namespace mgmtd
