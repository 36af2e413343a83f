#include <kit/text.h>
#include <sqlite3.h>
#include <stores/sqlite/internal/sqlite_error.h>

#include <cerrno>
#include <new>
#include <system_error>

namespace TalVcs::Kit::Sqlite {
namespace {

struct Reason {
  ErrorCode code;
  const char* text;
};

/// SQLite doesn't say why the system failed, but keeps the system's error number.
std::error_condition SystemErrorOf(sqlite3* database) {
  return std::system_category().default_error_condition(sqlite3_system_errno(database));
}

bool IsNoSpace([[maybe_unused]] sqlite3* database, const std::error_condition& condition) {
#ifdef EDQUOT
  if (sqlite3_system_errno(database) == EDQUOT) return true;
#endif
  return condition == std::errc::no_space_on_device || condition == std::errc::file_too_large;
}

Reason ReasonOfCannotOpen(sqlite3* database) {
  const std::error_condition condition = SystemErrorOf(database);
  if (condition == std::errc::no_such_file_or_directory ||
      condition == std::errc::not_a_directory) {
    return {ErrorCode::NotFound, "there is no such file"};
  }
  if (condition == std::errc::permission_denied ||
      condition == std::errc::operation_not_permitted ||
      condition == std::errc::read_only_file_system) {
    return {ErrorCode::Denied, "no permission"};
  }
  return {ErrorCode::Unavailable, "the system can't open it or its journal"};
}

Reason ReasonOfFailedSystem(sqlite3* database, int code) {
  if (code == SQLITE_IOERR_LOCK || code == SQLITE_IOERR_RDLOCK ||
      code == SQLITE_IOERR_CHECKRESERVEDLOCK) {
    return {ErrorCode::Unavailable, "its folder doesn't support locks"};
  }
  if (IsNoSpace(database, SystemErrorOf(database))) return {ErrorCode::Full, "no space left"};
  return {ErrorCode::Unavailable, "the system failed to read or write it"};
}

/// Returns the error number of the last failed read or write of the database's file, or 0 if none
/// has failed since the last call.
///
/// SQLite keeps the number while later reads succeed, and clears it at a read beyond the end.
int TakeFileError([[maybe_unused]] sqlite3* database) {
  int number = 0;
#ifndef _WIN32
  sqlite3_file* file = nullptr;
  if (!database ||
      sqlite3_file_control(database, "main", SQLITE_FCNTL_LAST_ERRNO, &number) != SQLITE_OK ||
      number == 0 ||
      sqlite3_file_control(database, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK) {
    return number;
  }
  sqlite3_int64 size_bytes = 0;
  char byte = 0;
  if (file->pMethods->xFileSize(file, &size_bytes) == SQLITE_OK) {
    static_cast<void>(file->pMethods->xRead(file, &byte, 1, size_bytes));
  }
#endif
  return number;
}

/// SQLite returns the code of damage for some reads that the system failed to do.
Reason ReasonOfDamage(int fileError) {
  if (fileError == EIO || fileError == ENXIO) {
    return {ErrorCode::Unavailable, "the system failed to read or write it"};
  }
  return {ErrorCode::Damaged, "its content is damaged"};
}

/// In a host's database, a trigger or a hook of the host may refuse a change.
Reason ReasonOfConstraint(int code) {
  if (code == SQLITE_CONSTRAINT_TRIGGER || code == SQLITE_CONSTRAINT_COMMITHOOK) {
    return {ErrorCode::Denied, "a trigger or hook of the host refuses it"};
  }
  return {ErrorCode::Damaged, "its content is damaged"};
}

Reason ReasonOf(sqlite3* database, int code, int fileError) {
  switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
      return {ErrorCode::Busy, "another program is using it"};
    case SQLITE_FULL:
      return {ErrorCode::Full, "no space left"};
    case SQLITE_READONLY:
      if (code == SQLITE_READONLY_DBMOVED) {
        return {ErrorCode::Unavailable, "the file was moved or removed"};
      }
      return {ErrorCode::Denied, "it can only be read"};
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return {ErrorCode::Denied, "no permission"};
    case SQLITE_CANTOPEN:
      return ReasonOfCannotOpen(database);
    case SQLITE_NOTADB:
      return {ErrorCode::Damaged, "it isn't a document, or its beginning is damaged"};
    case SQLITE_CONSTRAINT:
      return ReasonOfConstraint(code);
    case SQLITE_CORRUPT:
      return ReasonOfDamage(fileError);
    case SQLITE_MISMATCH:
      return {ErrorCode::Damaged, "its content is damaged"};
    case SQLITE_ERROR:
      return {ErrorCode::Damaged, "its tables aren't those of a document"};
    case SQLITE_NOMEM:
      return {ErrorCode::Unavailable, "SQLite ran out of memory, or its content is damaged"};
    case SQLITE_TOOBIG:
      return {ErrorCode::Unsupported, "it can't hold so large an object"};
    case SQLITE_INTERRUPT:
      return {ErrorCode::Cancelled, "the host has interrupted it"};
    case SQLITE_IOERR:
      return ReasonOfFailedSystem(database, code);
    default:
      return {ErrorCode::Unavailable, "the system failed to read or write it"};
  }
}

/// SQLite says for some damaged files too that it is out of memory.
bool IsOutOfMemory() {
  constexpr sqlite3_uint64 kLittleBytes = sqlite3_uint64{1} << 20;
  void* memory = sqlite3_malloc64(kLittleBytes);
  sqlite3_free(memory);
  return memory == nullptr;
}

const char* VerbOf(Task task) {
  switch (task) {
    case Task::Open:
      return "open";
    case Task::Read:
      return "read";
    case Task::Save:
      break;
  }
  return "save to";
}

}  // namespace

Error MakeError(ErrorCode code, Task task, const std::string& file, const std::string& reason) {
  Error error;
  error.code = code;
  // The bytes of a path need not be UTF-8; the texts of an error are.
  error.subject = ToUtf8(ToWide(file));
  error.message =
      ToUtf8(ToWide(std::string("cannot ") + VerbOf(task) + " \"" + file + "\": " + reason));
  if (task == Task::Save) error.unchanged = "the file is unchanged";
  return error;
}

Error ErrorFromSqlite(sqlite3* database, int code, Task task, const std::string& file) {
  // A host's connection may return the codes without their details.
  if (database && (sqlite3_extended_errcode(database) & 0xFF) == code) {
    code = sqlite3_extended_errcode(database);
  }
  const bool lacks_memory = (code & 0xFF) == SQLITE_NOMEM || code == SQLITE_IOERR_NOMEM;
  if (lacks_memory && IsOutOfMemory()) throw std::bad_alloc();
  const Reason reason = ReasonOf(database, code, TakeFileError(database));
  Error error = MakeError(reason.code, task, file, reason.text);
  error.cause = "SQLite " + std::to_string(code) + ": " +
                (database ? sqlite3_errmsg(database) : sqlite3_errstr(code));
  const bool is_system = (code & 0xFF) == SQLITE_IOERR || (code & 0xFF) == SQLITE_CANTOPEN;
  const int number = is_system ? sqlite3_system_errno(database) : 0;
  if (number != 0) error.cause += ": " + std::system_category().message(number);
  return error;
}

}  // namespace TalVcs::Kit::Sqlite
