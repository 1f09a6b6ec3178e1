#pragma once

#include <exception>
#include <string>

namespace kelvane::tests {

/// The message of the error that an attempt throws, or "(no failure)" if it throws nothing. Any other exception passes
/// through, so name the type if it matters: `sentenceOf<LibraryError>([&] { library.read(item); })`.
template <class Error = std::exception, class Attempt>
std::string sentenceOf(Attempt&& attempt) {
  try {
    attempt();
  } catch (const Error& error) {
    return error.what();
  }
  return "(no failure)";
}

}  // namespace kelvane::tests
