#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/FatalError.h"
#include "tests/program/configuration/ConfigProperties.h"

/// The input is a command, a NUL and the text of a file; a text alone where there is no NUL.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = input.find('\0');
  const std::string_view command = end == std::string_view::npos ? "/bin/k" : input.substr(0, end);
  const std::string_view text = end == std::string_view::npos ? input : input.substr(end + 1);
  const std::string broken = kelvane::brokenByClaudeConfig(text, command);
  if (!broken.empty()) kelvane::fatalError(broken);
  return 0;
}
