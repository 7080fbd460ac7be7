#ifndef NCDS_PROJECT_DETAIL_SQLITE_H
#define NCDS_PROJECT_DETAIL_SQLITE_H

// A thin owner of an SQLite connection and its prepared statements, turning SQLite's result
// codes into `NCError`s that name the project file and say what went wrong in words a user
// understands (not a project, damaged, busy, disk full). Internal to the project file.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace ncds::detail {

class SqliteDatabase {
 public:
  // Opens `path` for reading and writing; with `create`, makes the file when it is missing.
  // Throws `NCError` when the file cannot be opened.
  SqliteDatabase(const std::string& path, bool create);
  ~SqliteDatabase();
  SqliteDatabase(const SqliteDatabase&) = delete;
  SqliteDatabase& operator=(const SqliteDatabase&) = delete;

  sqlite3* Handle() const { return mDb; }
  const std::string& Path() const { return mPath; }

  // Runs statements without results. Throws `NCError` on failure.
  void Execute(const char* sql);
  // Throws the `NCError` for result `code` unless it is OK, ROW or DONE.
  void Check(int code) const;
  [[noreturn]] void Fail(int code) const;

 private:
  sqlite3* mDb = nullptr;
  std::string mPath;
};

class SqliteStatement {
 public:
  SqliteStatement(SqliteDatabase& db, const char* sql);
  ~SqliteStatement();
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;

  // Parameters are numbered from 1. Texts and blobs are bound without a copy: they must stay
  // unchanged until the statement is stepped and reset.
  SqliteStatement& Bind(int index, std::int64_t value);
  SqliteStatement& Bind(int index, std::string_view text);
  SqliteStatement& BindBlob(int index, const void* data, std::size_t size);
  // True while a row is there; false when done. Throws `NCError` on failure.
  bool Step();
  // Ready to run again, parameters kept.
  void Reset();

  // Columns of the current row, numbered from 0.
  std::int64_t Int(int column) const;
  std::string Text(int column) const;
  // Valid until the next step or reset.
  const void* Blob(int column, std::size_t& size) const;

 private:
  SqliteDatabase& mDb;
  sqlite3_stmt* mStmt = nullptr;
};

// A transaction, rolled back unless committed: a save either happens whole or not at all,
// also when the process dies in the middle. A write transaction takes the write lock at once;
// a read transaction sees one state of the file throughout.
class SqliteTransaction {
 public:
  // kWriteIfWritable: a write transaction, or a read transaction on a read-only file.
  enum Kind { kRead, kWrite, kWriteIfWritable };
  explicit SqliteTransaction(SqliteDatabase& db, Kind kind = kWrite);
  ~SqliteTransaction();
  SqliteTransaction(const SqliteTransaction&) = delete;
  SqliteTransaction& operator=(const SqliteTransaction&) = delete;

  void Commit();

 private:
  SqliteDatabase& mDb;
  bool mOpen = true;
};

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_SQLITE_H
