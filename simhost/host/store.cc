#include "simhost/host/store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "simhost/host/rows.h"

namespace simhost {

namespace {

constexpr int kBusyTimeoutMs = 5000;  // that a lock of SQLite's is waited for; as long as for a turn (turn.cc)

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// As the tool has it: no path, so that a name leads out of no folder.
bool IsHostName(std::string_view name) {
  constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  constexpr std::string_view kAll = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
  return !name.empty() && name.size() <= 63 && kLetters.find(name[0]) != std::string_view::npos &&
         name.find_first_not_of(kAll) == std::string_view::npos;
}

[[noreturn]] void Fail(const std::string& path, const std::string& reason) { throw StoreError(path + ": " + reason); }

}  // namespace

Statement::Statement(sqlite3* db, IdleStatements& idle, std::string_view sql) : db_(db), idle_(&idle) {
  if (const auto known = idle.find(sql); known != idle.end()) {
    handle_ = std::move(known->second);
    idle.erase(known);
    return;
  }
  sqlite3_stmt* handle = nullptr;
  const int result =
      sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &handle, nullptr);
  handle_.reset(handle);
  Check(result);
}

Statement::~Statement() {
  if (!handle_)
    return;
  sqlite3_reset(handle_.get());  // a statement in the middle of its rows keeps a transaction open
  sqlite3_clear_bindings(handle_.get());
  const char* sql = sqlite3_sql(handle_.get());
  idle_->emplace(sql, std::move(handle_));
}

void Statement::Check(int result) const {
  if (result != SQLITE_OK)
    throw StoreError(sqlite3_errmsg(db_));
}

void Statement::BindInt(std::int64_t value) { Check(sqlite3_bind_int64(handle_.get(), next_++, value)); }

void Statement::BindOne(std::string_view text) {
  Check(sqlite3_bind_text(handle_.get(), next_++, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT));
}

void Statement::BindOne(std::span<const std::uint8_t> bytes) {
  // An empty span may have no address, which would bind NULL.
  const void* data = bytes.empty() ? static_cast<const void*>("") : bytes.data();
  Check(sqlite3_bind_blob(handle_.get(), next_++, data, static_cast<int>(bytes.size()), SQLITE_TRANSIENT));
}

bool Statement::Step() {
  const int result = sqlite3_step(handle_.get());
  if (result == SQLITE_ROW)
    return true;
  if (result != SQLITE_DONE)
    throw StoreError(sqlite3_errmsg(db_));
  return false;
}

// The values stay bound until the next ones; next_ is the parameter that the next value goes to, from 1.
void Statement::Reset() {
  sqlite3_reset(handle_.get());
  next_ = 1;
}

void Statement::Finish() {
  while (Step()) {
  }
  Reset();
}

// With the NULs that a text may have in it: what was stored is what is read. NULL is an empty text.
std::string Statement::Text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(handle_.get(), column));
  return text != nullptr ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column)))
                         : std::string();
}

std::span<const std::uint8_t> Statement::Blob(int column) const {
  const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(handle_.get(), column));
  return {bytes, bytes != nullptr ? static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column)) : 0};
}

// RYN_SIM_STATE is a file, anywhere. A host's name is a file in the user's folder and nowhere else; a relative or
// missing HOME names no folder that could be meant.
std::string Store::Locate() {
  if (std::string path = Environment("RYN_SIM_STATE"); !path.empty())
    return path;
  std::string folder = Environment("XDG_STATE_HOME");
  if (folder.empty() || folder[0] != '/') {
    folder = Environment("HOME");
    if (folder.empty() || folder[0] != '/')
      throw StoreError("neither XDG_STATE_HOME nor HOME names a folder to keep hosts in");
    folder += "/.local/state";
  }
  std::string name = Environment("RYN_SIM_HOST");
  if (name.empty())
    name = "default";
  if (!IsHostName(name))
    throw StoreError("RYN_SIM_HOST: \"" + Printable(name) +
                     "\" is not a name for a host: expected up to 63 letters, digits, dots, hyphens and underscores");
  return folder + "/ryn-sim/" + name + ".db";
}

// The connection is used by one thread at a time (NOMUTEX; the session has a mutex). Every message begins with the
// path, since a script may use several hosts.
Store::Store(std::string path) : path_(std::move(path)) {
  if (access(path_.c_str(), F_OK) != 0)
    Create(path_);

  sqlite3* db = nullptr;
  const int result = sqlite3_open_v2(path_.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  db_.reset(db);
  if (result != SQLITE_OK)
    Fail(path_, sqlite3_errstr(result));
  try {
    // NORMAL: a setting that returned survives the process, a crash of the whole machine it may not.
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    Execute("PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON");
    Statement version = Prepare("PRAGMA user_version");
    version.Step();
    if (version.Int(0) != kSchemaVersion)
      throw StoreError("is not a store of this version of the simulated host; make it anew with: ryn-sim init --force");
  } catch (const StoreError& error) {
    Fail(path_, error.what());
  }

  struct stat status {};
  if (stat(path_.c_str(), &status) == 0) {
    device_ = status.st_dev;
    inode_ = status.st_ino;
  }
}

// The store appears under its name only when it is complete; if several processes make it at once, the first one's
// stays.
void Store::Create(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  std::error_code code;
  if (!folder.empty())
    std::filesystem::create_directories(folder, code);

  std::string temporary = path + ".XXXXXX";
  const int descriptor = mkstemp(temporary.data());  // 0600, less what the umask takes
  if (descriptor < 0)
    Fail(path, std::strerror(errno));
  close(descriptor);

  std::string reason;
  {
    sqlite3* db = nullptr;
    int result = sqlite3_open_v2(temporary.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    const std::unique_ptr<sqlite3, Close> owner(db);
    for (const char* sql :
         {"PRAGMA journal_mode = WAL; PRAGMA synchronous = OFF; BEGIN", kSchemaSql, kDefaultProfileSql, "COMMIT"}) {
      if (result == SQLITE_OK)
        result = sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
    }
    if (result != SQLITE_OK)
      reason = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(result);
  }
  // link() refuses to replace what another process has made meanwhile; rename() would not.
  if (reason.empty() && link(temporary.c_str(), path.c_str()) != 0 && errno != EEXIST)
    reason = std::strerror(errno);
  for (const char* suffix : {"", "-wal", "-shm"})
    unlink((temporary + suffix).c_str());
  if (!reason.empty())
    Fail(path, reason);
}

void Store::Execute(const char* sql) {
  if (sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK)
    throw StoreError(sqlite3_errmsg(db_.get()));
}

std::int64_t Store::Version() {
  Statement version = Prepare("PRAGMA data_version");
  version.Step();
  return version.Int(0);
}

// A file is its device and inode: one that was made anew under the same path is another one.
bool Store::IsCurrent() const {
  struct stat status {};
  return stat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

Transaction::Transaction(Store& store) : store_(store) { store_.Execute("BEGIN IMMEDIATE"); }

Transaction::~Transaction() {
  if (!open_)
    return;
  try {
    store_.Execute("ROLLBACK");
  } catch (const StoreError&) {
    // The store has rolled back by itself.
  }
}

void Transaction::Commit() {
  store_.Execute("COMMIT");
  open_ = false;
}

}  // namespace simhost
