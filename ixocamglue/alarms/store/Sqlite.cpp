#include "ixocamglue/alarms/store/Sqlite.h"

#include <sqlite3.h>
#include <utility>

namespace ixocamglue {
namespace {

int FlagsOf(TSqliteDb::TMode mode) {
  switch (mode) {
    case TSqliteDb::TMode::ReadOnly: return SQLITE_OPEN_READONLY;
    case TSqliteDb::TMode::ReadWrite: return SQLITE_OPEN_READWRITE;
    case TSqliteDb::TMode::Create: break;
  }
  return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
}

}  // namespace

void TSqliteDb::TCloser::operator()(sqlite3* db) const { sqlite3_close_v2(db); }

TSqliteDb::TSqliteDb(std::filesystem::path file, TMode mode, int busyMs) : FFile(std::move(file)) {
  sqlite3* db = nullptr;
  const int result = sqlite3_open_v2(FFile.c_str(), &db, FlagsOf(mode) | SQLITE_OPEN_FULLMUTEX, nullptr);
  FDb.reset(db);
  if (result != SQLITE_OK) Fail();
  sqlite3_busy_timeout(db, busyMs);
}

void TSqliteDb::Fail() const { Fail(FDb ? sqlite3_errmsg(FDb.get()) : "no memory for a connection"); }

void TSqliteDb::Exec(const char* sql) {
  if (sqlite3_exec(FDb.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) Fail();
}

std::int64_t TSqliteDb::Changes() const { return sqlite3_changes(FDb.get()); }

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

}  // namespace ixocamglue
