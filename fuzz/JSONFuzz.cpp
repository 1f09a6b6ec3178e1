#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/FatalError.h"
#include "tests/protocol/ProtocolProperties.h"

/// The input is a document.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string broken = kelvane::brokenByJSON({reinterpret_cast<const char*>(data), size});
  if (!broken.empty()) kelvane::fatalError(broken);
  return 0;
}
