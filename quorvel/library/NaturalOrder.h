#pragma once

#include <compare>
#include <string>
#include <string_view>

/// The order in which a person expects names: numbers by their value, so that "Take 2" comes before "Take 10"; letter
/// case and accents count only if nothing else differs.
///
/// To sort many names, make each one's key once, compare the keys as bytes, and ask `tieOrder` about names whose keys
/// are equal. Pure functions, linear in the names.
namespace quorvel {

/// A key whose order as bytes is the order of the names without regard to letter case, accents and zeros in front of
/// numbers. Numbers are runs of the digits 0 to 9, of any length.
std::string naturalKey(std::string_view name);

/// Appends the key to a string that holds others.
void appendNaturalKey(std::string_view name, std::string& keys);

/// The order of names whose keys are equal: by accents, then letter case, then bytes. Equal only for equal bytes.
std::strong_ordering tieOrder(std::string_view left, std::string_view right);

/// Both together: a total order of names. Equal only for equal bytes.
std::strong_ordering naturalOrder(std::string_view left, std::string_view right);

}  // namespace quorvel
