#include "protocol/JSON.h"

#include <algorithm>

#include "platform/Unicode.h"
#include "protocol/json/JSONStorage.h"

/// A value is 16 bytes that may be moved with memcpy: nothing points into a value, and a block is referred to by a
/// plain pointer. So copying is memcpy and one more reference, and moving is memcpy and null in the source. How blocks
/// are shared is described in protocol/json/JSONStorage.h.
namespace kelvane {

JSON::JSON(std::nullptr_t) noexcept : number_{{std::uint8_t(Storage::Tag::null), 0}, 0} {
}
JSON::JSON(FromBoolean from) noexcept : boolean_{{std::uint8_t(Storage::Tag::boolean), 0}, from.value} {
}
JSON::JSON(FromNumber from) noexcept : number_{{std::uint8_t(Storage::Tag::number), 0}, from.value} {
}

JSON::JSON(std::string_view string) : JSON(nullptr) {
  const Storage::Form form = unicode::isASCII(string)       ? Storage::Form::ascii
                             : unicode::isValidUTF8(string) ? Storage::Form::utf8
                                                            : Storage::Form::illFormed;
  if (string.size() <= inlineCapacity) {
    Storage::constructString(this, form, string);
  } else {
    Storage::constructString(this, form, Storage::newString(string));
  }
}

JSON::JSON(Array items) noexcept : JSON(std::uint8_t(Storage::Tag::array), std::exchange(items.block_, nullptr)) {
}
JSON::JSON(Object members) noexcept : JSON(std::uint8_t(Storage::Tag::object), std::exchange(members.block_, nullptr)) {
}

JSON::JSON(const JSON& other) noexcept {
  std::memcpy(static_cast<void*>(this), &other, sizeof(JSON));
  if (Storage::isShared(*this)) Storage::retain(Storage::block(*this));
}

JSON::JSON(JSON&& other) noexcept {
  std::memcpy(static_cast<void*>(this), &other, sizeof(JSON));
  ::new (&other) JSON(nullptr);
}

JSON& JSON::operator=(const JSON& other) noexcept {
  return *this = JSON(other);
}

JSON& JSON::operator=(JSON&& other) noexcept {
  // The old content is destroyed last, because `other` may be part of it.
  JSON old(std::move(*this));
  std::memcpy(static_cast<void*>(this), &other, sizeof(JSON));
  ::new (&other) JSON(nullptr);
  return *this;
}

JSON::~JSON() {
  if (Storage::isShared(*this)) Storage::release(Storage::block(*this));
}

JSON::Kind JSON::kind() const noexcept {
  switch (Storage::tag(*this)) {
    case Storage::Tag::boolean:
      return Kind::boolean;
    case Storage::Tag::number:
      return Kind::number;
    case Storage::Tag::inlineString:
    case Storage::Tag::sharedString:
      return Kind::string;
    case Storage::Tag::array:
      return Kind::array;
    case Storage::Tag::object:
      return Kind::object;
    default:
      return Kind::null;
  }
}

std::optional<std::string_view> JSON::string() const& noexcept {
  if (kind() != Kind::string) return std::nullopt;
  return Storage::stringOf(*this);
}

std::optional<double> JSON::number() const noexcept {
  if (kind() != Kind::number) return std::nullopt;
  return number_.value;
}

const JSON::Array* JSON::items() const& noexcept {
  return kind() == Kind::array ? &items_.array : nullptr;
}

const JSON::Object* JSON::object() const& noexcept {
  return kind() == Kind::object ? &members_.object : nullptr;
}

const JSON* JSON::operator[](std::string_view key) const& noexcept {
  const Object* members = object();
  return members ? members->find(key) : nullptr;
}

namespace {

/// Two runs of values that are compared pair by pair.
struct Pairs {
  const JSON* left;
  const JSON* right;
  std::size_t count;
};

}  // namespace

// Without recursion: when a pair is two arrays or two objects, its values are compared next, and what is left of the
// run around them waits in `open`.
bool JSON::equals(const JSON& other) const {
  std::vector<Pairs> open;
  Pairs pairs{this, &other, 1};
  while (true) {
    while (pairs.count == 0) {
      if (open.empty()) return true;
      pairs = open.back();
      open.pop_back();
    }
    const JSON& left = *pairs.left++;
    const JSON& right = *pairs.right++;
    --pairs.count;
    if (left.kind() != right.kind()) return false;
    switch (left.kind()) {
      case Kind::null:
        break;
      case Kind::boolean:
        if (left.boolean_.value != right.boolean_.value) return false;
        break;
      case Kind::number:
        if (!(left.number_.value == right.number_.value)) return false;
        break;
      case Kind::string:
        if (!Storage::equalStrings(left, right)) return false;
        break;
      case Kind::array:
      case Kind::object: {
        // Members have the same order on both sides, so keys and values compare like the items of arrays. Objects that
        // share a block are compared all the same: a NaN in them is not equal to itself.
        Block* leftBlock = Storage::block(left);
        Block* rightBlock = Storage::block(right);
        if (leftBlock == rightBlock && left.kind() == Kind::array) break;
        const std::size_t size = leftBlock ? leftBlock->size : 0;
        if (size != (rightBlock ? rightBlock->size : 0)) return false;
        if (size == 0) break;
        if (pairs.count > 0) open.push_back(pairs);
        pairs = {leftBlock->values(), rightBlock->values(), size};
      }
    }
  }
}

// Array

JSON::Array::Array(std::initializer_list<Element> values) {
  if (values.size() == 0) return;
  // `Array{items}` is a copy on every compiler; see Element.
  if (values.size() == 1 && values.begin()->isArray_) {
    *this = *values.begin()->value_.items();
    return;
  }
  block_ = Storage::newValues(values.size());
  for (const Element& element : values) ::new (block_->values() + block_->size++) JSON(element.value_);
}

JSON::Array::Array(std::vector<JSON> values) {
  if (values.empty()) return;
  block_ = Storage::newValues(values.size());
  for (JSON& value : values) ::new (block_->values() + block_->size++) JSON(std::move(value));
}

JSON::Array::Array(const Array& other) noexcept : block_(other.block_) {
  Storage::retain(block_);
}

JSON::Array& JSON::Array::operator=(const Array& other) noexcept {
  return *this = Array(other);
}

JSON::Array& JSON::Array::operator=(Array&& other) noexcept {
  Storage::release(std::exchange(block_, std::exchange(other.block_, nullptr)));
  return *this;
}

JSON::Array::~Array() {
  Storage::release(block_);
}

std::size_t JSON::Array::size() const noexcept {
  return block_ ? block_->size : 0;
}

const JSON* JSON::Array::begin() const& noexcept {
  return block_ ? block_->values() : nullptr;
}

const JSON* JSON::Array::end() const& noexcept {
  return block_ ? block_->values() + block_->size : nullptr;
}

void JSON::Array::append(JSON value) {
  Storage::own(block_, size() + 1);
  ::new (block_->values() + block_->size++) JSON(std::move(value));
}

}  // namespace kelvane
