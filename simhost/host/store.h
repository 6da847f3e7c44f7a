// The store of a simulated host: one SQLite file that every process using the host shares (schema.sql describes it).
#pragma once

#include <sqlite3.h>
#include <sys/types.h>

#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace simhost {

// Status codes. The platform itself names only the first three; the others are this simulation's own choice.
inline constexpr std::uint32_t kOk = 0;
inline constexpr std::uint32_t kNotFound = 0x0BAD0003;      // no such switch, port or property
inline constexpr std::uint32_t kBadParameter = 0x0BAD0007;  // a value that means nothing here
inline constexpr std::uint32_t kNoStore = 0x0BAD0001;       // the host's store cannot be used
inline constexpr std::uint32_t kNoRoom = 0x0BAD0008;        // the caller's area is too small for the answer
inline constexpr std::uint32_t kLimit = 0x0BAD0010;         // a table is full

// The store cannot be opened, read or written.
class StoreError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using StatementHandle = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

// Statements that nobody uses at the moment, by their text. To parse one takes longer than to run most of them, and
// each change runs the same few dozen.
using IdleStatements = std::multimap<std::string, StatementHandle, std::less<>>;

// One prepared statement. Parameters are bound in order, by the type of each value: a whole number or a truth value as
// INTEGER, a string as TEXT, bytes (std::span or array of uint8_t) as BLOB. Values are copied. Columns are read by
// position, from 0.
class Statement {
 public:
  // Takes it from the idle ones if it is there, and puts it there in the end.
  Statement(sqlite3* db, IdleStatements& idle, std::string_view sql);
  ~Statement();
  Statement(Statement&&) = default;

  template <class... Values>
  Statement& Bind(const Values&... values) {
    (BindOne(values), ...);
    return *this;
  }

  bool Step();  // true: there is a row
  void Reset();
  // Binds the values, steps to the end and resets the statement for the next values.
  template <class... Values>
  void Run(const Values&... values) {
    Bind(values...);
    Finish();
  }

  std::int64_t Int(int column) const { return sqlite3_column_int64(handle_.get(), column); }
  std::string Text(int column) const;
  std::span<const std::uint8_t> Blob(int column) const;
  int Type(int column) const { return sqlite3_column_type(handle_.get(), column); }
  bool IsNull(int column) const { return Type(column) == SQLITE_NULL; }

 private:
  void BindOne(std::integral auto value) { BindInt(static_cast<std::int64_t>(value)); }
  void BindOne(std::string_view text);
  void BindOne(std::span<const std::uint8_t> bytes);
  void BindInt(std::int64_t value);
  void Finish();
  void Check(int result) const;

  StatementHandle handle_;
  sqlite3* db_;
  IdleStatements* idle_;
  int next_ = 1;
};

class Store {
 public:
  // Where the host's store is: RYN_SIM_STATE, else NAME.db in the user's state folder, NAME from RYN_SIM_HOST.
  static std::string Locate();

  // Opens the store, and makes it from the built-in profile if there is none.
  explicit Store(std::string path);

  // A statement with these values bound.
  template <class... Values>
  Statement Prepare(std::string_view sql, const Values&... values) {
    Statement statement(db_.get(), idle_, sql);
    statement.Bind(values...);
    return statement;
  }
  // Runs one statement that returns no rows, with these values bound.
  template <class... Values>
  void Run(std::string_view sql, const Values&... values) {
    Statement(db_.get(), idle_, sql).Run(values...);
  }
  void Execute(const char* sql);                              // any number of statements, without values
  int Changes() const { return sqlite3_changes(db_.get()); }  // rows that the last statement changed
  std::int64_t Version();                                     // changes when another connection has changed the store
  bool IsCurrent() const;                                     // the path still leads to the file that is open
  const std::string& path() const { return path_; }

  // Gives the connection up without closing it: after a fork it belongs to the parent, and SQLite does not allow a
  // child to use or close a connection that it inherited.
  void Abandon() {
    for (auto& [sql, statement] : idle_)
      (void)statement.release();
    (void)db_.release();
  }

 private:
  static void Create(const std::string& path);

  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
  };
  std::string path_;
  std::unique_ptr<sqlite3, Close> db_;
  IdleStatements idle_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

// A transaction that writes; undone unless committed.
class Transaction {
 public:
  explicit Transaction(Store& store);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

 private:
  Store& store_;
  bool open_ = true;
};

// The texts that a new store is made of, put into the library when it is built.
extern const char kSchemaSql[];
extern const char kDefaultProfileSql[];

}  // namespace simhost
