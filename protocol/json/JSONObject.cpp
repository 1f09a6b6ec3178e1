#include <algorithm>

#include "platform/Unicode.h"
#include "protocol/json/JSONStorage.h"

/// An object's block holds its members sorted by the canonical form of their keys, so finding one is a binary search.
/// Adding and removing move the members after it as bytes. Comparing keys allocates nothing, so `find` never fails.
namespace kelvane {

// Two neighbouring values of a block are read as one member.
static_assert(sizeof(JSON::Member) == 2 * sizeof(JSON));

/// A key that is looked for. Keys that are all ASCII are compared as bytes, by the first eight of them where that is
/// enough; what is known of each key's bytes is stored with it.
class JSON::Storage::SoughtKey {
 public:
  explicit SoughtKey(std::string_view key) noexcept
      : key_(key), isASCII_(unicode::isASCII(key)), rank_(leadingBytes(key)) {}

  /// Where the key is among the members of an object's block (null: of an empty one), or would be.
  struct Position {
    std::size_t index;
    bool isTaken;
  };

  Position positionIn(Block* block) const noexcept {
    if (block == nullptr) return {0, false};
    const JSON* const values = block->values();
    const std::size_t count = block->size / 2;
    std::size_t index = 0;
    for (std::size_t left = count; left > 0;) {
      const std::size_t half = left / 2;
      if (isAfter(values[2 * (index + half)])) {
        index += half + 1;
        left -= half + 1;
      } else {
        left = half;
      }
    }
    return {index, index < count && is(values[2 * index])};
  }

 private:
  bool isAfter(const JSON& name) const noexcept {
    if (!isComparedAsBytes(name)) return unicode::order(stringOf(name), key_) < 0;
    const std::uint64_t rank = leadingBytes(name);
    return rank != rank_ ? rank < rank_ : stringOf(name) < key_;
  }

  bool is(const JSON& name) const noexcept {
    return isComparedAsBytes(name) ? stringOf(name) == key_ : unicode::equivalent(stringOf(name), key_);
  }

  bool isComparedAsBytes(const JSON& name) const noexcept { return isASCII_ && form(name) == Form::ascii; }

  std::string_view key_;
  bool isASCII_;
  std::uint64_t rank_;
};

// These delegate to the default constructor, so that the destructor runs if memory runs out half-way.

JSON::Object::Object(std::initializer_list<std::pair<std::string_view, JSON>> members) : Object() {
  if (members.size() > 0) Storage::own(block_, 2 * members.size());
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
  const auto [index, isTaken] = Storage::SoughtKey(key).positionIn(block_);
  return isTaken ? &begin()[index].value() : nullptr;
}

void JSON::Object::set(std::string_view key, JSON value) {
  const auto [index, isTaken] = Storage::SoughtKey(key).positionIn(block_);
  if (isTaken) {
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
  const auto [index, isTaken] = Storage::SoughtKey(key).positionIn(block_);
  if (!isTaken) return false;
  Storage::own(block_, block_->size);
  JSON* at = block_->values() + 2 * index;
  const JSON oldName(std::move(at[0]));
  const JSON oldValue(std::move(at[1]));
  std::memmove(static_cast<void*>(at), at + 2, (block_->size - 2 * index - 2) * sizeof(JSON));
  block_->size -= 2;
  return true;
}

}  // namespace kelvane
