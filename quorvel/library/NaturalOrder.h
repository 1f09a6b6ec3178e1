#pragma once

#include <compare>
#include <string>
#include <string_view>

/// The order in which a person expects names: numbers by their value, so that "Take 2" comes before "Take 10", and
/// letter case and accents only where nothing else differs.
namespace quorvel {

/// What decides first: the order of two names' keys as bytes is the order of the names without regard to letter case,
/// accents and the zeros in front of numbers. Numbers are runs of the digits 0 to 9 of any length.
std::string naturalKey(std::string_view name);

/// Puts the key at the end of a text that holds others.
void appendNaturalKey(std::string_view name, std::string& keys);

/// What decides between names of equal keys: accents, then letter case, then the bytes; equal only for equal bytes.
std::strong_ordering tieOrder(std::string_view left, std::string_view right);

/// Both: a total order of names, equal only for equal bytes.
std::strong_ordering naturalOrder(std::string_view left, std::string_view right);

}  // namespace quorvel
