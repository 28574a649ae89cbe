#include "ixocamglue/alarms/store/Sqlite.h"

#include <algorithm>
#include <iterator>
#include <sqlite3.h>
#include <sys/stat.h>
#include <utility>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

int FlagsOf(TSqliteDb::TMode mode) {
  switch (mode) {
    case TSqliteDb::TMode::ReadOnly: return SQLITE_OPEN_READONLY;
    case TSqliteDb::TMode::ReadWrite: return SQLITE_OPEN_READWRITE;
    case TSqliteDb::TMode::Unwritten: return SQLITE_OPEN_READONLY | SQLITE_OPEN_URI;
    case TSqliteDb::TMode::Create: break;
  }
  return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
}

// The name of a file that nobody writes.
std::string UriOf(const std::filesystem::path& file) {
  std::string uri = "file:";
  for (const char c : file.string()) {
    if (c == '?' || c == '#' || c == '%')
      uri += Format("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    else
      uri += c;
  }
  return uri + "?immutable=1";
}

// What goes wrong in the field; everything else in SQLite's own words.
struct TFailure {
  int Code;
  const char* Words;
};
constexpr TFailure kFailures[] = {{SQLITE_BUSY, TrMark("another program locks the file")},
                                  {SQLITE_LOCKED, TrMark("another program locks the file")},
                                  {SQLITE_READONLY, TrMark("the file may only be read")},
                                  {SQLITE_IOERR, TrMark("the disk cannot be read or written")},
                                  {SQLITE_CORRUPT, TrMark("the file is damaged")},
                                  {SQLITE_FULL, TrMark("the disk is full")},
                                  {SQLITE_CANTOPEN, TrMark("the file cannot be opened")},
                                  {SQLITE_NOTADB, TrMark("the file is no database")}};

}  // namespace

TFileIdentity IdentityOf(const std::filesystem::path& file) {
  struct stat found {};
  if (::stat(file.c_str(), &found) != 0) return std::nullopt;
  return std::pair(std::uint64_t{found.st_dev}, std::uint64_t{found.st_ino});
}

void TSqliteDb::TCloser::operator()(sqlite3* db) const { sqlite3_close_v2(db); }

TSqliteDb::TSqliteDb(std::filesystem::path file, TMode mode, int busyMs) : FFile(std::move(file)) {
  sqlite3* db = nullptr;
  const std::string name = mode == TMode::Unwritten ? UriOf(FFile) : FFile.string();
  const int result = sqlite3_open_v2(name.c_str(), &db, FlagsOf(mode) | SQLITE_OPEN_FULLMUTEX, nullptr);
  FDb.reset(db);
  if (result != SQLITE_OK) Fail();
  sqlite3_busy_timeout(db, busyMs);
  FIdentity = IdentityOf(FFile);
}

bool TSqliteDb::InTransaction() const { return sqlite3_get_autocommit(FDb.get()) == 0; }
bool TSqliteDb::InPlace() const { return FIdentity && IdentityOf(FFile) == FIdentity; }

void TSqliteDb::Fail() const {
  if (!FDb) Fail(Tr("there is no memory for a connection"));
  const int code = sqlite3_errcode(FDb.get()) & 0xFF;
  const auto known = std::ranges::find(kFailures, code, &TFailure::Code);
  Fail(known == std::end(kFailures) ? sqlite3_errmsg(FDb.get()) : Tr(known->Words));
}

void TSqliteDb::Exec(const char* sql) {
  if (sqlite3_exec(FDb.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) Fail();
}

void TSqliteDb::Transact(const std::function<void()>& write) {
  Exec("BEGIN IMMEDIATE");
  try {
    write();
    Exec("COMMIT");
  } catch (...) {
    try {
      if (InTransaction()) Exec("ROLLBACK");  // a full disk has rolled back by itself
    } catch (...) {
      FBroken = true;
      throw;
    }
    try {
      Exec("PRAGMA wal_checkpoint(TRUNCATE)");  // gives the log's room back, where there is any
    } catch (...) {
    }
    throw;
  }
}

std::int64_t TSqliteDb::Changes() const { return sqlite3_changes(FDb.get()); }

std::int64_t TSqliteDb::LastRow() const { return sqlite3_last_insert_rowid(FDb.get()); }

void TSqliteStmt::TFinalizer::operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }

TSqliteStmt::TSqliteStmt(TSqliteDb& db, std::string_view sql) : FDb(db) {
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db.Native(), sql.data(), static_cast<int>(sql.size()), &stmt, nullptr) != SQLITE_OK) db.Fail();
  FStmt.reset(stmt);
}

TSqliteStmt& TSqliteStmt::Bind(int parameter, std::string_view text) {
  // A null pointer would bind NULL.
  const char* const bytes = text.empty() ? "" : text.data();
  if (sqlite3_bind_text64(FStmt.get(), parameter, bytes, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK)
    FDb.Fail();
  return *this;
}

TSqliteStmt& TSqliteStmt::Bind(int parameter, std::int64_t number) {
  if (sqlite3_bind_int64(FStmt.get(), parameter, number) != SQLITE_OK) FDb.Fail();
  return *this;
}

bool TSqliteStmt::Step() {
  const int result = sqlite3_step(FStmt.get());
  if (result == SQLITE_ROW) return true;
  if (result == SQLITE_DONE) return false;
  FDb.Fail();
}

void TSqliteStmt::Run() {
  const int result = sqlite3_step(FStmt.get());
  if (result != SQLITE_DONE && result != SQLITE_ROW) {
    sqlite3_reset(FStmt.get());  // an open statement would keep the transaction from being rolled back
    FDb.Fail();
  }
  sqlite3_reset(FStmt.get());
}

std::string TSqliteStmt::Text(int column) const {
  const auto* const text = sqlite3_column_text(FStmt.get(), column);
  if (!text) return {};
  return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(sqlite3_column_bytes(FStmt.get(), column))};
}

std::int64_t TSqliteStmt::Int(int column) const { return sqlite3_column_int64(FStmt.get(), column); }

void PrepareStore(TSqliteDb& db, const TStoreShape& shape) {
  {
    TSqliteStmt version(db, "PRAGMA user_version");
    if (version.Step() && version.Int(0) > shape.Version) db.Fail(Tr(shape.TooNew));
    TSqliteStmt foreign(db,
                        "SELECT count(*) FROM sqlite_master WHERE NOT EXISTS(SELECT 1 FROM sqlite_master WHERE "
                        "type='table' AND name=?1)");
    foreign.Bind(1, shape.Table);
    if (foreign.Step() && foreign.Int(0) > 0) db.Fail(Tr("the file is another program's database"));
  }
  db.Exec("PRAGMA journal_mode=WAL");
  db.Exec("PRAGMA synchronous=FULL");
  db.Exec("PRAGMA cache_size=-256");  // KiB: whoever appends reads little back, and a file may grow for months
  db.Exec(shape.Tables);
  (void)TSqliteStmt(db, shape.Columns);
  db.Exec(Format("PRAGMA user_version=%d", shape.Version).c_str());
}

// A reader takes part in the write-ahead log. Where it may not, it reads along; and a file that nobody writes needs no
// log.
std::unique_ptr<TSqliteDb> OpenStoreToRead(const std::filesystem::path& file, int busyMs) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) throw ESqlite(file, Tr("there is no such file"));
  for (const auto mode : {TSqliteDb::TMode::ReadWrite, TSqliteDb::TMode::ReadOnly, TSqliteDb::TMode::Unwritten}) {
    try {
      auto db = std::make_unique<TSqliteDb>(file, mode, busyMs);
      TSqliteStmt probe(*db, "SELECT count(*) FROM sqlite_master");
      (void)probe.Step();
      return db;
    } catch (const ESqlite&) {
      const bool last = mode == TSqliteDb::TMode::Unwritten ||
                        (mode == TSqliteDb::TMode::ReadOnly && std::filesystem::exists(file.string() + "-wal", error));
      if (last) throw;
    }
  }
  return nullptr;
}

}  // namespace ixocamglue
