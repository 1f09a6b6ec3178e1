#include <algorithm>

#include "platform/Unicode.h"
#include "protocol/json/JSONStorage.h"

/// An object's block holds its members sorted by the canonical form of their keys, so finding one is a binary search.
/// Adding and removing move the members after it as bytes. Comparing keys allocates nothing, so `find` never fails.
namespace kelvane {

// Two neighbouring values of a block are read as one member.
static_assert(sizeof(JSON::Member) == 2 * sizeof(JSON));

namespace {

/// The index of the first member whose key is not before this one: the index of the key, or the one it would have.
std::size_t lowerBound(const JSON::Object& object, std::string_view key) noexcept {
  const bool keyIsASCII = unicode::isASCII(key);
  const auto isBefore = [keyIsASCII](const JSON::Member& member, std::string_view wanted) {
    const std::string_view name = member.key();
    if (keyIsASCII && unicode::isASCII(name)) return name < wanted;
    return unicode::order(name, wanted) < 0;
  };
  return static_cast<std::size_t>(std::lower_bound(object.begin(), object.end(), key, isBefore) - object.begin());
}

bool isAt(const JSON::Object& object, std::size_t index, std::string_view key) noexcept {
  return index < object.size() && unicode::equivalent(object.begin()[index].key(), key);
}

}  // namespace

// These delegate to the default constructor, so that the destructor runs if memory runs out half-way.

JSON::Object::Object(std::initializer_list<std::pair<std::string_view, JSON>> members) : Object() {
  for (const auto& [key, value] : members) set(key, value);
}

JSON::Object::Object(std::vector<std::pair<std::string, JSON>> members) : Object() {
  // Sorted first, `set` only ever adds or replaces at the end, so nothing is moved. The sort is stable, so that the
  // last of equal keys stays the last.
  std::stable_sort(members.begin(), members.end(),
                   [](const auto& left, const auto& right) { return unicode::order(left.first, right.first) < 0; });
  for (auto& [key, value] : members) set(key, std::move(value));
}

JSON::Object::Object(const Object& other) noexcept : block_(other.block_) {
  Storage::retain(block_);
}

JSON::Object& JSON::Object::operator=(const Object& other) noexcept {
  return *this = Object(other);
}

JSON::Object& JSON::Object::operator=(Object&& other) noexcept {
  Storage::release(std::exchange(block_, std::exchange(other.block_, nullptr)));
  return *this;
}

JSON::Object::~Object() {
  Storage::release(block_);
}

std::size_t JSON::Object::size() const noexcept {
  return block_ ? block_->size / 2 : 0;
}

const JSON::Member* JSON::Object::begin() const& noexcept {
  return block_ ? reinterpret_cast<const Member*>(block_->values()) : nullptr;
}

const JSON::Member* JSON::Object::end() const& noexcept {
  return begin() + size();
}

const JSON* JSON::Object::find(std::string_view key) const& noexcept {
  const std::size_t index = lowerBound(*this, key);
  return isAt(*this, index, key) ? &begin()[index].value() : nullptr;
}

void JSON::Object::set(std::string_view key, JSON value) {
  const std::size_t index = lowerBound(*this, key);
  if (isAt(*this, index, key)) {
    Storage::own(block_, block_->size);
    block_->values()[2 * index + 1] = std::move(value);
    return;
  }
  JSON name(key);  // before the block is opened: it may throw
  Storage::own(block_, 2 * size() + 2);
  JSON* at = block_->values() + 2 * index;
  std::memmove(static_cast<void*>(at + 2), at, (block_->size - 2 * index) * sizeof(JSON));
  ::new (at) JSON(std::move(name));
  ::new (at + 1) JSON(std::move(value));
  block_->size += 2;
}

bool JSON::Object::erase(std::string_view key) {
  const std::size_t index = lowerBound(*this, key);
  if (!isAt(*this, index, key)) return false;
  Storage::own(block_, block_->size);
  JSON* at = block_->values() + 2 * index;
  const JSON oldName(std::move(at[0]));
  const JSON oldValue(std::move(at[1]));
  std::memmove(static_cast<void*>(at), at + 2, (block_->size - 2 * index - 2) * sizeof(JSON));
  block_->size -= 2;
  return true;
}

}  // namespace kelvane
