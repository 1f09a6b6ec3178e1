#pragma once

#include <CLI/App.hpp>
#include <string>

#include "scripttools/ScriptTools.h"

namespace kelvane {

/// Which library a command works on, and whether it may change it.
struct LibraryOptions {
  std::string folder;  ///< As typed; empty when it was not.
  bool allowsWrites = false;

  /// Adds "--library" and "--allow-writes", bound to this value, which must outlive the parsing.
  void addTo(CLI::App& command);

  /// The tools of that library, which opens nothing before a tool is run. Throws an error with a complete sentence when
  /// no folder is given, or the folder is not there or cannot be read.
  ScriptTools open() const;
};

}  // namespace kelvane
