// A small RAII wrapper over SQLite for the fleet commands: a connection that
// creates the fleet's tables when it opens a database, prepared statements
// bound by position, and errors as exceptions carrying SQLite's message.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace fleet {

// SQLite's message, prefixed with what was being done.
class DbError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Statement;

class Db {
 public:
  enum class Mode { kCreate, kReadWrite, kReadOnly };
  // Opens (kCreate: creates when missing) `path`; kCreate and kReadWrite then create the
  // fleet's tables when missing, in WAL mode. Throws DbError naming the file.
  explicit Db(const std::string& path, Mode mode = Mode::kCreate);
  ~Db();
  Db(const Db&) = delete;
  Db& operator=(const Db&) = delete;

  void Exec(const std::string& sql);  // one or more statements without results
  Statement Prepare(std::string_view sql);
  int64_t LastInsertId() const;
  sqlite3* Handle() const { return m_db; }
  const std::string& Path() const { return m_path; }

 private:
  sqlite3* m_db = nullptr;
  std::string m_path;
};

// One prepared statement: Bind (1-based), then Step until it returns false.
class Statement {
 public:
  Statement(sqlite3* db, std::string_view sql);
  ~Statement();
  Statement(Statement&& other) noexcept;
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  Statement& operator=(Statement&&) = delete;

  Statement& Bind(int index, int64_t value);
  Statement& Bind(int index, std::string_view text);
  Statement& Bind(int index, const std::string& text) { return Bind(index, std::string_view(text)); }
  Statement& Bind(int index, const char* text) { return Bind(index, std::string_view(text)); }
  Statement& Bind(int index, const std::optional<std::string>& text);  // nullopt: NULL
  Statement& BindNull(int index);
  bool Step();  // true: a row is ready
  void Run();   // steps to the end, then resets for the next binding
  void Reset();

  int Columns() const;
  std::string Name(int column) const;
  int Type(int column) const;  // SQLITE_INTEGER, SQLITE_FLOAT, SQLITE_TEXT, SQLITE_BLOB or SQLITE_NULL
  int64_t Int(int column) const;
  double Real(int column) const;
  std::string_view Text(int column) const;  // also a blob's bytes

 private:
  sqlite3* m_db;
  sqlite3_stmt* m_stmt = nullptr;
};

// BEGIN on construction; ROLLBACK on destruction unless Commit() was called.
class Transaction {
 public:
  explicit Transaction(Db& db, const char* begin = "BEGIN");
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

 private:
  Db& m_db;
  bool m_open = true;
};

// The tables a fleet database holds, in the order their rows depend on each other (parents first).
inline constexpr const char* kTables[] = {"reports", "boots",          "processes",     "cameras", "events",
                                          "notes",   "recorded_state", "reading_notes", "files"};

}  // namespace fleet
