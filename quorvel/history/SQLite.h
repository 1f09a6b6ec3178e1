#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/Expected.h"
#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/SystemCalls.h"

struct sqlite3;
struct sqlite3_context;
struct sqlite3_stmt;
struct sqlite3_value;

/// SQLite's C interface in C++: a connection, a prepared statement, and an exception for every failure.
///
///     Connection connection(folder, "history.sqlite", Connection::Access::creating, 10s);
///     connection.run("INSERT INTO texts (hash, bytes) VALUES (?, ?)", hash, bytes);
///     Statement rows = connection.prepare("SELECT bytes FROM texts WHERE hash = ?", hash);
///     while (rows.next()) use(rows.bytes(0));
///
/// Everything throws Error, and std::bad_alloc if there is no memory. A connection and its statements are for one
/// thread at a time.
namespace quorvel::sqlite {

class ConfinedVFS;

/// Lets SQLite do now what it does once per process, such as asking the system for random bytes, so that the first
/// request of a client does not wait for that. Optional; each History does it when it is made. In a process that has
/// not used SQLite before, SQLite does not count its memory from then on: sqlite3_memory_used() is 0. Not to be called
/// for the first time while another thread uses SQLite for the first time by other means.
void prepareProcess() noexcept;

/// SQLite refused or failed. `code` is SQLite's extended code, or one of ConfinedVFS's. `systemError` is the value of
/// errno behind it, or 0 if the system is not the reason.
class Error : public std::runtime_error {
 public:
  Error(int code, int systemError, const std::string& message);

  int code() const noexcept { return code_; }
  int primaryCode() const noexcept { return code_ & 0xff; }
  int systemError() const noexcept { return systemError_; }

 private:
  int code_;
  int systemError_;
};

/// A prepared statement with its parameters. Must not outlive its connection, nor the bytes bound to it.
class Statement {
 public:
  /// Goes to the next row; the first call goes to the first row. False if there is none left.
  bool next();

  /// Runs the statement to its end, and ignores its rows.
  void run();

  /// The value of a column of the current row; the first column is 0.
  std::int64_t integer(int column) const;
  std::string bytes(int column) const;

 private:
  friend class Connection;
  Statement(sqlite3* connection, std::string_view sql);
  void bind(int parameter, std::int64_t value);
  void bind(int parameter, std::string_view bytes);

  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept;
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// A connection to a database file. Its end rolls back an open transaction.
class Connection {
 public:
  enum class Access { reading, writing, creating };

  /// Opens the file of that name in an opened folder, without reading it. Operations wait for at most `patience` while
  /// another connection has the database locked. They touch only this file and its rollback journal in the same folder,
  /// whatever these contain, and fail if they would have to touch another (ConfinedVFS.h). `calls` must outlive the
  /// connection.
  Connection(std::shared_ptr<const Descriptor> folder, const std::string& name, Access access,
             std::chrono::milliseconds patience, const SystemCalls& calls = SystemCalls::ofTheSystem());

  /// The same, or empty if there is no such file.
  static std::optional<Connection> find(std::shared_ptr<const Descriptor> folder, const std::string& name,
                                        Access access, std::chrono::milliseconds patience,
                                        const SystemCalls& calls = SystemCalls::ofTheSystem());
  Connection(Connection&&) = default;
  Connection& operator=(Connection&&) = delete;

  /// Prepares a statement and binds its parameters, integers and bytes, in their order.
  template <typename... Parameters>
  Statement prepare(std::string_view sql, const Parameters&... parameters) {
    Statement statement(connection_.get(), sql);
    int parameter = 0;
    (statement.bind(++parameter, parameters), ...);
    return statement;
  }

  /// Runs a statement to its end.
  template <typename... Parameters>
  void run(std::string_view sql, const Parameters&... parameters) {
    prepare(sql, parameters...).run();
  }

  /// What the file's schema defines, such as a view, may call only functions that do no harm.
  void distrustSchema();

  /// Lets statements of this connection call a function of a BLOB by that name. The function must always return the
  /// same for the same bytes. Views and triggers in the file cannot call it.
  template <std::int64_t (*function)(std::string_view) noexcept>
  void define(const char* name) {
    defineRaw(name, [](sqlite3_context* context, int, sqlite3_value** values) noexcept {
      answer(context, function(bytesOf(*values)));
    });
  }

  /// Runs several statements without parameters, separated by ";".
  void runAll(std::string_view sql);

  /// The integer in the first column of the first row. The statement must have a row.
  template <typename... Parameters>
  std::int64_t integer(std::string_view sql, const Parameters&... parameters) {
    Statement statement = prepare(sql, parameters...);
    statement.next();
    return statement.integer(0);
  }

  /// Which file the database is. Known once a statement has read it.
  FileIdentity identity() const noexcept;

  /// Each change asks this just before anything of it reaches the disk. If the answer is no, it fails with
  /// SQLITE_READONLY_DBMOVED; with an error, as a refused flush does. Nothing has changed then.
  void setGuard(std::function<Expected<bool>(const FileIdentity& database)> isInPlace);

  /// The number of the row that was inserted last.
  std::int64_t lastInserted() const noexcept;

 private:
  using RawFunction = void (*)(sqlite3_context* context, int count, sqlite3_value** values);
  void defineRaw(const char* name, RawFunction function);
  static std::string_view bytesOf(sqlite3_value* value) noexcept;
  static void answer(sqlite3_context* context, std::int64_t value) noexcept;

  struct Close {
    void operator()(sqlite3* connection) const noexcept;
  };
  struct Forget {
    void operator()(ConfinedVFS* files) const noexcept;
  };
  std::unique_ptr<ConfinedVFS, Forget> files_;  // outlives the connection
  std::unique_ptr<sqlite3, Close> connection_;
};

}  // namespace quorvel::sqlite
