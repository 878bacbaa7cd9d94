#include "sim/fleet/db.h"

#include <sqlite3.h>

#include "sim/fleet/fleet.h"

namespace fleet {
namespace {

// What ingest knows of each file it has read: a file found again at the same path with the same
// size and modification time is taken as the same report without reading its bytes again.
constexpr char kFilesSchema[] = R"sql(
CREATE TABLE IF NOT EXISTS files (
  path TEXT PRIMARY KEY,
  size INTEGER NOT NULL,
  mtime_ns INTEGER NOT NULL,
  hash TEXT NOT NULL
) WITHOUT ROWID;
)sql";

[[noreturn]] void Fail(sqlite3* db, const std::string& what) {
  throw DbError(what + ": " + (db ? sqlite3_errmsg(db) : "out of memory"));
}

}  // namespace

Db::Db(const std::string& path, Mode mode) : m_path(path) {
  const int flags = mode == Mode::kReadOnly    ? SQLITE_OPEN_READONLY
                    : mode == Mode::kReadWrite ? SQLITE_OPEN_READWRITE
                                               : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  if (sqlite3_open_v2(path.c_str(), &m_db, flags | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
    const std::string message = m_db ? sqlite3_errmsg(m_db) : "out of memory";
    sqlite3_close(m_db);
    m_db = nullptr;
    throw DbError(path + ": " + message);
  }
  // Another process (a second ingest, a summary) may hold the database for a moment.
  sqlite3_busy_timeout(m_db, 60000);
  try {
    if (mode == Mode::kReadOnly) {
      Exec("PRAGMA foreign_keys = ON");
      return;
    }
    // WAL: readers go on while a report is written; NORMAL: a commit survives the process being killed.
    Exec("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
    Exec(kSchema);
    Exec(kFilesSchema);
  } catch (const DbError&) {
    sqlite3_close(m_db);
    m_db = nullptr;
    throw;
  }
}

Db::~Db() { sqlite3_close_v2(m_db); }

void Db::Exec(const std::string& sql) {
  char* message = nullptr;
  if (sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
    const std::string text = message ? message : sqlite3_errmsg(m_db);
    sqlite3_free(message);
    throw DbError(m_path + ": " + text);
  }
}

Statement Db::Prepare(std::string_view sql) { return Statement(m_db, sql); }

int64_t Db::LastInsertId() const { return sqlite3_last_insert_rowid(m_db); }

Statement::Statement(sqlite3* db, std::string_view sql) : m_db(db) {
  if (sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &m_stmt, nullptr) != SQLITE_OK) {
    Fail(db, "preparing " + std::string(sql.substr(0, 60)));
  }
}

Statement::~Statement() { sqlite3_finalize(m_stmt); }

Statement::Statement(Statement&& other) noexcept : m_db(other.m_db), m_stmt(other.m_stmt) { other.m_stmt = nullptr; }

Statement& Statement::Bind(int index, int64_t value) {
  if (sqlite3_bind_int64(m_stmt, index, value) != SQLITE_OK) Fail(m_db, "binding");
  return *this;
}

Statement& Statement::Bind(int index, std::string_view text) {
  if (sqlite3_bind_text(m_stmt, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT) != SQLITE_OK) {
    Fail(m_db, "binding");
  }
  return *this;
}

Statement& Statement::Bind(int index, const std::optional<std::string>& text) {
  return text ? Bind(index, std::string_view(*text)) : BindNull(index);
}

Statement& Statement::BindNull(int index) {
  if (sqlite3_bind_null(m_stmt, index) != SQLITE_OK) Fail(m_db, "binding");
  return *this;
}

bool Statement::Step() {
  const int status = sqlite3_step(m_stmt);
  if (status == SQLITE_ROW) return true;
  if (status == SQLITE_DONE) return false;
  Fail(m_db, std::string("running ") + sqlite3_sql(m_stmt));
}

void Statement::Run() {
  while (Step()) {
  }
  Reset();
}

void Statement::Reset() {
  sqlite3_reset(m_stmt);
  sqlite3_clear_bindings(m_stmt);
}

int Statement::Columns() const { return sqlite3_column_count(m_stmt); }
std::string Statement::Name(int column) const { return sqlite3_column_name(m_stmt, column); }
int Statement::Type(int column) const { return sqlite3_column_type(m_stmt, column); }
int64_t Statement::Int(int column) const { return sqlite3_column_int64(m_stmt, column); }
double Statement::Real(int column) const { return sqlite3_column_double(m_stmt, column); }

std::string_view Statement::Text(int column) const {
  const auto* text = static_cast<const char*>(sqlite3_column_blob(m_stmt, column));
  return text ? std::string_view(text, static_cast<size_t>(sqlite3_column_bytes(m_stmt, column))) : std::string_view();
}

Transaction::Transaction(Db& db, const char* begin) : m_db(db) { m_db.Exec(begin); }

Transaction::~Transaction() {
  if (!m_open) return;
  try {
    m_db.Exec("ROLLBACK");
  } catch (const DbError&) {
    // Nothing to undo when the failure already ended the transaction.
  }
}

void Transaction::Commit() {
  m_db.Exec("COMMIT");
  m_open = false;
}

}  // namespace fleet
