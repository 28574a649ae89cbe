// SQLite, as much of it as the stores need. A connection and its statements belong to one thread at a time. Each
// operation throws ESqlite, with the file and the reason, where its line says nothing else.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ixocamglue/support/Problem.h"

struct sqlite3;
struct sqlite3_stmt;

namespace ixocamglue {

// Which file it is that stands at a path: its device and number. Nothing: there is none.
using TFileIdentity = std::optional<std::pair<std::uint64_t, std::uint64_t>>;
[[nodiscard]] TFileIdentity IdentityOf(const std::filesystem::path& file);

// Thrown by everything here: "FILE: what is wrong", in the operator's words where it is one of the usual failures.
class ESqlite : public EProblem {
 public:
  ESqlite(const std::filesystem::path& file, std::string what)
      : EProblem(pbUnusable, {.What = std::move(what), .Where = file.string()}) {}
};

class TSqliteDb {
 public:
  // Unwritten: nobody writes the file meanwhile, so nothing but the file itself is looked at.
  enum class TMode { ReadOnly, ReadWrite, Create, Unwritten };

  TSqliteDb(std::filesystem::path file, TMode mode, int busyMs);
  TSqliteDb(const TSqliteDb&) = delete;
  TSqliteDb& operator=(const TSqliteDb&) = delete;

  void Exec(const char* sql);
  // What `write` writes, all of it or nothing; throws what it throws. A connection that is broken afterwards is opened
  // anew by its owner.
  void Transact(const std::function<void()>& write);
  [[nodiscard]] bool Broken() const { return FBroken; }
  [[nodiscard]] std::int64_t Changes() const;  // rows of the last statement
  [[nodiscard]] std::int64_t LastRow() const;  // that was inserted
  [[nodiscard]] const TFileIdentity& Identity() const { return FIdentity; }
  [[nodiscard]] bool InTransaction() const;
  [[nodiscard]] bool InPlace() const;  // the file that was opened still stands at its path
  [[nodiscard]] sqlite3* Native() const { return FDb.get(); }
  [[noreturn]] void Fail() const;  // with what SQLite says
  [[noreturn]] void Fail(std::string what) const { throw ESqlite(FFile, std::move(what)); }

 private:
  struct TCloser {
    void operator()(sqlite3* db) const;
  };
  const std::filesystem::path FFile;
  std::unique_ptr<sqlite3, TCloser> FDb;
  TFileIdentity FIdentity;
  bool FBroken = false;
};

// The connection outlives its statements.
class TSqliteStmt {
 public:
  TSqliteStmt(TSqliteDb& db, std::string_view sql);

  // Parameters are numbered from 1; ESqlite for one outside. The text is copied.
  TSqliteStmt& Bind(int parameter, std::string_view text);
  TSqliteStmt& Bind(int parameter, std::int64_t number);  // likewise outside
  [[nodiscard]] bool Step();                              // true: there is a row
  // Runs a statement without rows, and makes it ready for the next time.
  void Run();

  [[nodiscard]] std::string Text(int column) const;  // from 0; empty for NULL, and outside
  [[nodiscard]] std::int64_t Int(int column) const;  // from 0; 0 for NULL, and outside

 private:
  struct TFinalizer {
    void operator()(sqlite3_stmt* stmt) const;
  };
  TSqliteDb& FDb;
  std::unique_ptr<sqlite3_stmt, TFinalizer> FStmt;
};

// What makes a file one of ours.
struct TStoreShape {
  int Version;          // of the tables; a file of a higher one is refused
  const char* Table;    // every file of ours has it
  const char* Tables;   // makes what is missing
  const char* Columns;  // a query of all that is used: a table of somebody else's fails here
  const char* TooNew;   // what a higher version is told as, through Tr
};
// Makes the tables where they are missing; throws ESqlite for a file that is no database or another program's.
void PrepareStore(TSqliteDb& db, const TStoreShape& shape);
// For reading, also while another process writes it. Throws when there is no such file or it cannot be read.
[[nodiscard]] std::unique_ptr<TSqliteDb> OpenStoreToRead(const std::filesystem::path& file, int busyMs);

}  // namespace ixocamglue
