#pragma once

#include <memory>
#include <vector>

#include "platform/QuorvelLibrary.h"
#include "protocol/Tool.h"

namespace kelvane {

/// Makes the tools that let a client work on a script library.
class ScriptTools {
 public:
  /// Neither may be null. Both are shared with every tool made; they must stand calls from several threads at once
  /// where the tools get them.
  ScriptTools(std::shared_ptr<quorvel::ScriptLibrary> library, std::shared_ptr<quorvel::VersionStore> versions);

  /// The tools, in the order that clients see: reading the library, reading chapters and, only when allowing writes,
  /// writing the library and editing chapters. Without writes the latter do not exist for a client.
  std::vector<Tool> tools(bool allowingWrites) const;

 private:
  std::shared_ptr<quorvel::ScriptLibrary> library_;
  std::shared_ptr<quorvel::VersionStore> versions_;
};

}  // namespace kelvane
