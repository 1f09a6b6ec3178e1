#pragma once

namespace quorvel::sqlite {

/// The lock on a database, held by one open file, that all programs with SQLite respect. The levels are SQLite's:
/// several connections can have `shared` and read; one of them can have `reserved` and prepare a change; one alone can
/// have `exclusive` and write.
///
///     DatabaseLock lock(file);
///     if (lock.raise(DatabaseLock::shared) && lock.raise(DatabaseLock::reserved)) …
///     lock.lower(DatabaseLock::none);
///
/// Not promised: that a connection of this process which uses SQLite's own locks keeps them when this file is closed.
///
/// Operations never wait. They throw std::system_error if the system fails. For one thread at a time.
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
