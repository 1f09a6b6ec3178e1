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
#include "quorvel/files/FileIdentity.h"
#include "quorvel/files/SystemCalls.h"

struct sqlite3;
struct sqlite3_stmt;

/// SQLite's C interface in C++: a connection, a prepared statement, and an exception for whatever goes wrong.
namespace quorvel::sqlite {

class ConfinedVFS;

/// Does what SQLite does once in a process, such as asking the system for random bytes, so that the first call of a
/// client does not wait for it. It may be called any number of times, and need not be.
void prepareProcess() noexcept;

/// SQLite refused or failed. The code is the extended one; the errno is the system's last answer where one is behind
/// it, else 0.
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

/// One prepared statement, its parameters bound. Does not outlive its connection, nor the bytes bound to it.
class Statement {
 public:
  /// Goes to the next row, to the first one at first. False when there is none left.
  bool next();

  /// Runs a statement that gives no rows, or whose rows do not matter, to its end.
  void run();

  /// What a column of the present row holds, 0 for the first.
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

/// A connection to a database file, for one thread at a time. An open transaction is rolled back at its end.
class Connection {
 public:
  enum class Access { reading, writing, creating };

  /// Opens the file of that name in an opened folder; a symbolic link is refused. Looks at nothing in it. Operations
  /// wait for `patience` while another connection has the database locked. They touch no file but this one and its
  /// rollback journal in the same folder, whatever is in these, and fail where they would have to (see ConfinedVFS).
  Connection(std::shared_ptr<const Descriptor> folder, const std::string& name, Access access,
             std::chrono::milliseconds patience, const SystemCalls& calls = SystemCalls::ofTheSystem());

  /// The same, or empty if there is no such file.
  static std::optional<Connection> find(std::shared_ptr<const Descriptor> folder, const std::string& name,
                                        Access access, std::chrono::milliseconds patience,
                                        const SystemCalls& calls = SystemCalls::ofTheSystem());
  Connection(Connection&&) = default;
  Connection& operator=(Connection&&) = delete;

  /// A statement with its parameters, integers and bytes, bound in their order.
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

  /// Runs several statements without parameters, separated by ";".
  void runAll(std::string_view sql);

  /// The integer in the first column of the first row, which must be there.
  template <typename... Parameters>
  std::int64_t integer(std::string_view sql, const Parameters&... parameters) {
    Statement statement = prepare(sql, parameters...);
    statement.next();
    return statement.integer(0);
  }

  /// Which file the database is. Known once a statement has read it.
  FileIdentity identity() const noexcept;

  /// Each change asks this just before anything of it reaches the disk. If the answer is no, it fails with
  /// SQLITE_READONLY_DBMOVED, and nothing has changed.
  void setGuard(std::function<bool(const FileIdentity& database)> isInPlace);

  /// The row that was inserted last.
  std::int64_t lastInserted() const noexcept;

 private:
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
