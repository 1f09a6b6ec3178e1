#pragma once

namespace quorvel::sqlite {

/// The lock on a database that SQLite's own programs respect, held by one open file. Its levels are SQLite's.
///
/// Operations throw std::system_error when the system fails. One thread at a time; each connection has its own.
class DatabaseLock {
 public:
  enum Level { none, shared, reserved, pending, exclusive };

  /// The file must stay open as long as the object lives; closing it releases the lock.
  explicit DatabaseLock(int file) noexcept : file_(file) {}

  /// Raises the lock to `shared`, from there to `reserved`, and from either of them to `exclusive`. Returns false,
  /// without waiting, if another connection's lock is in the way; a lock that was on the way to `exclusive` may be
  /// `pending` then, which keeps new readers out.
  bool raise(Level level);

  /// Lowers the lock to `shared` or `none`.
  void lower(Level level);

  /// Whether this or another connection has a `reserved` lock or a higher one.
  bool isReserved() const;

  Level level() const noexcept { return level_; }

 private:
  const int file_;
  Level level_ = none;
};

}  // namespace quorvel::sqlite
