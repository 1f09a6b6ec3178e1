#include "quorvel/history/SQLite.h"

#include <sqlite3.h>

#include <cerrno>
#include <new>
#include <utility>

#include "quorvel/history/ConfinedVFS.h"

namespace quorvel::sqlite {

namespace {

/// SQLite itself notes the system's reason only for some failures, such as one to open the database.
int systemErrorBehind(sqlite3* connection, int code) {
  const int primary = code & 0xff;
  if (!connection || (primary != SQLITE_IOERR && primary != SQLITE_CANTOPEN)) return 0;
  int error = 0;
  const bool isOpen = sqlite3_file_control(connection, "main", SQLITE_FCNTL_LAST_ERRNO, &error) == SQLITE_OK;
  return isOpen ? error : sqlite3_system_errno(connection);
}

[[noreturn]] void fail(sqlite3* connection, int code) {
  const int systemError = systemErrorBehind(connection, code);
  if ((code & 0xff) == SQLITE_NOMEM) throw std::bad_alloc();
  throw Error(code, systemError, connection ? sqlite3_errmsg(connection) : sqlite3_errstr(code));
}

void check(sqlite3* connection, int code) {
  if (code != SQLITE_OK) fail(connection, code);
}

}  // namespace

void prepareProcess() noexcept {
  // SQLite would lock a mutex at each allocation to count its bytes, which nobody asks for. It refuses the setting
  // where the process has used it already, and counts on.
  [[maybe_unused]] static const int isSet = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  char byte = 0;
  sqlite3_randomness(1, &byte);
}

Error::Error(int code, int systemError, const std::string& message)
    : std::runtime_error(message), code_(code), systemError_(systemError) {
}

Statement::Statement(sqlite3* connection, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  check(connection, sqlite3_prepare_v2(connection, sql.data(), static_cast<int>(sql.size()), &statement, nullptr));
  statement_.reset(statement);
}

void Statement::bind(int parameter, std::int64_t value) {
  check(sqlite3_db_handle(statement_.get()), sqlite3_bind_int64(statement_.get(), parameter, value));
}

void Statement::bind(int parameter, std::string_view bytes) {
  const char* data = bytes.data() ? bytes.data() : "";  // a null pointer would be bound as NULL
  check(sqlite3_db_handle(statement_.get()),
        sqlite3_bind_blob64(statement_.get(), parameter, data, bytes.size(), SQLITE_STATIC));
}

bool Statement::next() {
  const int code = sqlite3_step(statement_.get());
  if (code != SQLITE_ROW && code != SQLITE_DONE) fail(sqlite3_db_handle(statement_.get()), code);
  return code == SQLITE_ROW;
}

void Statement::run() {
  while (next()) {
  }
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::string Statement::bytes(int column) const {
  const void* data = sqlite3_column_blob(statement_.get(), column);
  const int size = sqlite3_column_bytes(statement_.get(), column);
  if (!data && sqlite3_errcode(sqlite3_db_handle(statement_.get())) == SQLITE_NOMEM) throw std::bad_alloc();
  return data ? std::string(static_cast<const char*>(data), static_cast<std::size_t>(size)) : std::string();
}

void Statement::Finalize::operator()(sqlite3_stmt* statement) const noexcept {
  sqlite3_finalize(statement);
}

Connection::Connection(std::shared_ptr<const Descriptor> folder, const std::string& name, Access access,
                       std::chrono::milliseconds patience, const SystemCalls& calls)
    : files_(new ConfinedVFS(std::move(folder), calls)) {
  const int how = access == Access::reading   ? SQLITE_OPEN_READONLY
                  : access == Access::writing ? SQLITE_OPEN_READWRITE
                                              : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  const int flags = how | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_EXRESCODE;
  sqlite3* connection = nullptr;
  const int code = sqlite3_open_v2(name.c_str(), &connection, flags, files_->name());
  connection_.reset(connection);
  check(connection, code);
  check(connection, sqlite3_busy_timeout(connection, static_cast<int>(patience.count())));
  run("PRAGMA temp_store = MEMORY");
}

std::optional<Connection> Connection::find(std::shared_ptr<const Descriptor> folder, const std::string& name,
                                           Access access, std::chrono::milliseconds patience,
                                           const SystemCalls& calls) {
  try {
    return Connection(std::move(folder), name, access, patience, calls);
  } catch (const Error& error) {
    if (error.code() == SQLITE_CANTOPEN && error.systemError() == ENOENT) return std::nullopt;
    throw;
  }
}

void Connection::distrustSchema() {
  check(connection_.get(), sqlite3_db_config(connection_.get(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr));
}

void Connection::runAll(std::string_view sql) {
  check(connection_.get(), sqlite3_exec(connection_.get(), std::string(sql).c_str(), nullptr, nullptr, nullptr));
}

void Connection::defineRaw(const char* name, RawFunction function) {
  constexpr int kind = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY;
  check(connection_.get(),
        sqlite3_create_function(connection_.get(), name, 1, kind, nullptr, function, nullptr, nullptr));
}

std::string_view Connection::bytesOf(sqlite3_value* value) noexcept {
  const void* data = sqlite3_value_blob(value);  // first, because it may change how many bytes there are
  const int size = data ? sqlite3_value_bytes(value) : 0;
  return {static_cast<const char*>(data), static_cast<std::size_t>(size)};
}

void Connection::answer(sqlite3_context* context, std::int64_t value) noexcept {
  sqlite3_result_int64(context, value);
}

FileIdentity Connection::identity() const noexcept {
  return files_->database();
}

void Connection::setGuard(std::function<Expected<bool>(const FileIdentity& database)> isInPlace) {
  files_->setGuard(std::move(isInPlace));
}

std::int64_t Connection::lastInserted() const noexcept {
  return sqlite3_last_insert_rowid(connection_.get());
}

void Connection::Close::operator()(sqlite3* connection) const noexcept {
  sqlite3_close(connection);
}

void Connection::Forget::operator()(ConfinedVFS* files) const noexcept {
  delete files;
}

}  // namespace quorvel::sqlite
