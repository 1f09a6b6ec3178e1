#pragma once

#include <cmath>
#include <concepts>
#include <cstdint>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/JSON.h"

/// Reading and writing JSON values through somebody else's decoder or encoder of single values: another text form, a
/// property list, a test. For JSON text there is `JSON::decoded` and `JSON::encoded`, which do not come through here.
///
/// How deep these go is the decoder's and encoder's business: for what is nested they call back, one call a level.
namespace kelvane {

/// What holds one value that is not known yet. `decodeNil` says whether it is null; each of the others gives the value
/// as that kind, or throws any std::exception where it is of another, but std::bad_alloc only where memory runs out.
/// `decodeArray` and `decodeObject` make their elements with `JSON::from`.
template <class D>
concept SingleValueDecoder = requires(D& decoder) {
  { decoder.decodeNil() } -> std::same_as<bool>;
  { decoder.decodeBool() } -> std::same_as<bool>;
  { decoder.decodeDouble() } -> std::same_as<double>;
  { decoder.decodeString() } -> std::convertible_to<std::string>;
  { decoder.decodeArray() } -> std::same_as<JSON::Array>;
  { decoder.decodeObject() } -> std::same_as<JSON::Object>;
};

/// What takes one value. `encodeArray` and `encodeObject` write their elements with `JSON::encode`. What they return is
/// dropped, and what they throw goes to the caller.
template <class E>
concept SingleValueEncoder = requires(E& encoder, const JSON::Array& items, const JSON::Object& members) {
  encoder.encodeNil();
  encoder.encodeBool(true);
  encoder.encodeInteger(std::int64_t{});
  encoder.encodeDouble(double{});
  encoder.encodeString(std::string_view());
  encoder.encodeArray(items);
  encoder.encodeObject(members);
};

/// The number as the integer that it is written as: when it is integral and its magnitude below 9e15, where every
/// integer is a double of its own. Nothing for any other, NaN and the infinities included.
inline std::optional<std::int64_t> jsonInteger(double value) noexcept {
  if (!(std::abs(value) < 9e15)) return std::nullopt;
  const auto integer = static_cast<std::int64_t>(value);
  return static_cast<double>(integer) == value ? std::optional(integer) : std::nullopt;
}

/// Tries null, Bool, double, String, array and object, in this order: the first that the decoder holds is the value, so
/// a decoder that takes numbers for Bools gives Bools. The errors of the other attempts are dropped, but std::bad_alloc
/// goes to the caller: it says nothing about the value.
/// Throws JSONDecodingError, "Unrecognised JSON", when it holds none.
template <class Decoder>
JSON JSON::from(Decoder& decoder) {
  static_assert(SingleValueDecoder<Decoder>);
  const auto attempt = [](auto decode) -> std::optional<JSON> {
    try {
      return decode();
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception&) {
      return std::nullopt;
    }
  };
  if (decoder.decodeNil()) return nullptr;
  std::optional<JSON> value = attempt([&]() -> JSON { return decoder.decodeBool(); });
  if (!value) value = attempt([&]() -> JSON { return decoder.decodeDouble(); });
  if (!value) value = attempt([&]() -> JSON { return std::string(decoder.decodeString()); });
  if (!value) value = attempt([&]() -> JSON { return decoder.decodeArray(); });
  if (!value) value = attempt([&]() -> JSON { return decoder.decodeObject(); });
  if (!value) throw JSONDecodingError();
  return *std::move(value);
}

/// Writes the value as its own kind; a number that `jsonInteger` knows as an integer.
template <class Encoder>
void JSON::encode(Encoder& encoder) const {
  static_assert(SingleValueEncoder<Encoder>);
  switch (kind()) {
    case Kind::null:
      return static_cast<void>(encoder.encodeNil());
    case Kind::boolean:
      return static_cast<void>(encoder.encodeBool(bool{*this == JSON(true)}));
    case Kind::number:
      if (const auto integer = jsonInteger(*number())) {
        return static_cast<void>(encoder.encodeInteger(std::int64_t{*integer}));
      }
      return static_cast<void>(encoder.encodeDouble(double{*number()}));
    case Kind::string:
      return static_cast<void>(encoder.encodeString(std::string_view(*string())));
    case Kind::array:
      return static_cast<void>(encoder.encodeArray(*items()));
    case Kind::object:
      return static_cast<void>(encoder.encodeObject(*object()));
  }
}

}  // namespace kelvane
