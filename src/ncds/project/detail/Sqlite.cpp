#include "ncds/project/detail/Sqlite.h"

#include <sqlite3.h>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"

namespace ncds::detail {

SqliteDatabase::SqliteDatabase(const std::string& path, bool create) : mPath(path) {
  const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0) |
                    SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  const int code = sqlite3_open_v2(path.c_str(), &mDb, flags, nullptr);
  if (code != SQLITE_OK) {
    // The handle exists even when opening failed, and must be closed.
    sqlite3_close(mDb);
    mDb = nullptr;
    Fail(code);
  }
  // Another process writing gets a short grace before the project counts as busy.
  sqlite3_busy_timeout(mDb, 2000);
}

SqliteDatabase::~SqliteDatabase() { sqlite3_close(mDb); }

void SqliteDatabase::Execute(const char* sql) {
  Check(sqlite3_exec(mDb, sql, nullptr, nullptr, nullptr));
}

void SqliteDatabase::Check(int code) const {
  if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE) Fail(code);
}

void SqliteDatabase::Fail(int code) const {
  switch (code & 0xFF) {
    case SQLITE_NOTADB:
      throw NCError(ExceptionMessage::translate("{1} is not an ncds project file.") % mPath);
    case SQLITE_CORRUPT:
      throw NCError(ExceptionMessage::translate("The project file {1} is damaged.") % mPath);
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      throw NCError(
          ExceptionMessage::translate(
              "The project file {1} is in use by another process; try again when it is done.") %
          mPath);
    case SQLITE_CANTOPEN:
      throw NCError(ExceptionMessage::translate("The project file {1} cannot be opened.") % mPath);
    case SQLITE_FULL:
      throw NCError(
          ExceptionMessage::translate("The disk is full: the project file {1} was not changed.") %
          mPath);
    case SQLITE_READONLY:
    case SQLITE_PERM:
      throw NCError(ExceptionMessage::translate("The project file {1} cannot be written.") % mPath);
    default:
      throw NCError(ExceptionMessage::translate("The project file {1} could not be used: {2}.") %
                    mPath % (mDb ? sqlite3_errmsg(mDb) : sqlite3_errstr(code)));
  }
}

SqliteStatement::SqliteStatement(SqliteDatabase& db, const char* sql) : mDb(db) {
  mDb.Check(sqlite3_prepare_v2(db.Handle(), sql, -1, &mStmt, nullptr));
}

SqliteStatement::~SqliteStatement() { sqlite3_finalize(mStmt); }

SqliteStatement& SqliteStatement::Bind(int index, std::int64_t value) {
  mDb.Check(sqlite3_bind_int64(mStmt, index, value));
  return *this;
}

SqliteStatement& SqliteStatement::Bind(int index, std::string_view text) {
  mDb.Check(
      sqlite3_bind_text64(mStmt, index, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
  return *this;
}

SqliteStatement& SqliteStatement::BindBlob(int index, const void* data, std::size_t size) {
  // A null pointer would bind NULL rather than an empty blob.
  static const char kEmpty = 0;
  mDb.Check(sqlite3_bind_blob64(mStmt, index, size ? data : &kEmpty, size, SQLITE_STATIC));
  return *this;
}

bool SqliteStatement::Step() {
  const int code = sqlite3_step(mStmt);
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  sqlite3_reset(mStmt);
  mDb.Fail(code);
}

void SqliteStatement::Reset() { sqlite3_reset(mStmt); }

std::int64_t SqliteStatement::Int(int column) const { return sqlite3_column_int64(mStmt, column); }

std::string SqliteStatement::Text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(mStmt, column));
  return text ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(mStmt, column)))
              : std::string();
}

const void* SqliteStatement::Blob(int column, std::size_t& size) const {
  const void* data = sqlite3_column_blob(mStmt, column);
  size = static_cast<std::size_t>(sqlite3_column_bytes(mStmt, column));
  return data;
}

SqliteTransaction::SqliteTransaction(SqliteDatabase& db, Kind kind) : mDb(db) {
  if (kind == kRead) {
    mDb.Execute("BEGIN");
    return;
  }
  const int code = sqlite3_exec(mDb.Handle(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  if (kind == kWriteIfWritable && (code & 0xFF) == SQLITE_READONLY) {
    mDb.Execute("BEGIN");
    return;
  }
  mDb.Check(code);
}

SqliteTransaction::~SqliteTransaction() {
  if (mOpen) sqlite3_exec(mDb.Handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void SqliteTransaction::Commit() {
  mDb.Execute("COMMIT");
  mOpen = false;
}

}  // namespace ncds::detail
