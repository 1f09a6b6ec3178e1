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

/// Reads and writes JSON values through an application's own decoder and encoder: of another format, a property
/// list, a test. For JSON itself use `JSON::decoded` and `JSON::encoded`, which do not use anything from here.
///
///     struct Writer {                                    // a single-value encoder
///       std::string out;
///       void encodeNil() { out += "nothing"; }
///       void encodeBool(bool value) { out += value ? "yes" : "no"; }
///       void encodeInteger(std::int64_t value) { out += std::to_string(value); }
///       void encodeDouble(double value) { out += std::to_string(value); }
///       void encodeString(std::string_view string) { out += string; }
///       void encodeArray(const JSON::Array& items) {
///         for (const JSON& item : items) item.encode(*this);
///       }
///       void encodeObject(const JSON::Object& members) { … }
///     };
///
/// Nested values go through the decoder or encoder again, one call per level. So these templates recurse as deep as the
/// value nests, unlike everything else of `JSON`; a decoder of untrusted input must limit the depth itself.
///
/// Both take time linear in the value, besides what the decoder or encoder does. They keep no state of their own.
namespace kelvane {

/// Holds one value of an unknown kind. `decodeNil` returns whether it is null. Each of the others returns the value if
/// it is of that kind, and otherwise throws any std::exception except std::bad_alloc, which is only for a lack of
/// memory. `decodeArray` and `decodeObject` make their elements with `JSON::from`.
template <class D>
concept SingleValueDecoder = requires(D& decoder) {
  { decoder.decodeNil() } -> std::same_as<bool>;
  { decoder.decodeBool() } -> std::same_as<bool>;
  { decoder.decodeDouble() } -> std::same_as<double>;
  { decoder.decodeString() } -> std::convertible_to<std::string>;
  { decoder.decodeArray() } -> std::same_as<JSON::Array>;
  { decoder.decodeObject() } -> std::same_as<JSON::Object>;
};

/// Receives one value. `encodeArray` and `encodeObject` write their elements with `JSON::encode`. Return values are
/// ignored. Exceptions reach the caller of `JSON::encode`.
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

/// The number as an integer, if JSON shows it as one: if it is integral and its magnitude is below 9e15. Up to
/// there each integer has a double of its own (2^53 is about 9.007e15). std::nullopt for any other number, for NaN and
/// for the infinities. -0.0 gives 0.
inline std::optional<std::int64_t> jsonInteger(double value) noexcept {
  if (!(std::abs(value) < 9e15)) return std::nullopt;
  const auto integer = static_cast<std::int64_t>(value);
  return static_cast<double>(integer) == value ? std::optional(integer) : std::nullopt;
}

/// Tries null, Bool, double, string, array and object, in this order. The first attempt that succeeds gives the value,
/// so a decoder that accepts numbers as Bools gives Bools. Exceptions of failed attempts are dropped, except
/// std::bad_alloc, which reaches the caller: it says nothing about the value.
///
/// Throws JSONDecodingError, "Unrecognised JSON", if every attempt fails.
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

/// Calls the operation for the value's own kind: for a number `encodeInteger` if `jsonInteger` returns an integer, and
/// `encodeDouble` otherwise, also for NaN and the infinities.
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
