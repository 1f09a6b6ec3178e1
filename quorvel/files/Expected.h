#pragma once

#include <optional>
#include <system_error>
#include <utility>

namespace quorvel {

/// A value, or the reason why there is none: what C++23 calls std::expected<Value, std::error_code>, as far as it is
/// used here. It is for failures that are an ordinary answer, such as a file that is not there:
///
///     const auto file = openToRead(folder, name);
///     if (!file) return file.error();
///     use(*file);
///
/// Errors are of the generic category, so they compare with std::errc. Costs no allocation. As thread-safe as Value.
template <class Value>
class [[nodiscard]] Expected {
 public:
  using value_type = Value;

  Expected(Value value) : value_(std::move(value)) {}
  Expected(std::error_code error) noexcept : error_(error) {}

  bool has_value() const noexcept { return value_.has_value(); }
  explicit operator bool() const noexcept { return has_value(); }

  /// The value. Undefined if there is none.
  const Value& operator*() const& noexcept { return *value_; }
  Value& operator*() & noexcept { return *value_; }
  Value&& operator*() && noexcept { return *std::move(value_); }
  const Value* operator->() const noexcept { return &*value_; }
  Value* operator->() noexcept { return &*value_; }

  /// The value, or `other` if there is none.
  Value value_or(Value other) const { return value_.value_or(std::move(other)); }

  /// The reason why there is no value; no error if there is one.
  const std::error_code& error() const noexcept { return error_; }

  /// Whether both have values that are equal. Two that have none are not equal.
  friend bool operator==(const Expected& one, const Expected& other) {
    return one.value_.has_value() && one.value_ == other.value_;
  }
  friend bool operator==(const Expected& one, const Value& value) { return one.value_ == value; }

 private:
  std::optional<Value> value_;
  std::error_code error_;
};

}  // namespace quorvel
