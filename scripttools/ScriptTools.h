#pragma once

#include <memory>
#include <vector>

#include "platform/QuorvelLibrary.h"
#include "protocol/Tool.h"

namespace kelvane {

/// Makes the tools by which an MCP client works on a script library: seventeen with writing allowed, six without.
///
/// # Example: a server over an application's own library
///
///     auto library = std::make_shared<MyLibrary>();    // derived from quorvel::ScriptLibrary
///     auto versions = std::make_shared<MyVersions>();  // derived from quorvel::VersionStore
///     const kelvane::Preferences preferences(kelvane::UserDefaults::standard().get());
///     if (!preferences.isEnabled()) return 0;
///
///     const kelvane::ScriptTools tools(library, versions);
///     const kelvane::Server server("My application", tools.tools(preferences.allowsWrites()));
///     kelvane::Transport::run(server);  // until the client closes standard input
///
/// # What the tools promise
///
/// - No tool touches anything outside the library's root, whatever identifier, path or link it is given.
/// - Before a tool replaces a text, the old text is saved as a version. If that fails, the text stays.
/// - A writing call holds the library's lock from its first read to its last write, and releases it before it returns.
/// - Between two calls a tool keeps no state.
///
/// A failure of the library or of the version store passes through unchanged; `Server` turns it into a failed result.
/// The tools may be called from several threads at once if the library and the version store may.
class ScriptTools {
 public:
  /// Shares ownership of both with every tool that it makes. Null for either stops the process: it is a defect of the
  /// caller. Nothing is read yet.
  ScriptTools(std::shared_ptr<quorvel::ScriptLibrary> library, std::shared_ptr<quorvel::VersionStore> versions);

  /// The tools in the order that clients see: those that read the library, those that read chapters and, only if
  /// `allowingWrites`, those that change the library and those that edit chapters. Without it a client cannot tell that
  /// the latter exist. Each tool stays valid after this object is gone.
  std::vector<Tool> tools(bool allowingWrites) const;

 private:
  std::shared_ptr<quorvel::ScriptLibrary> library_;
  std::shared_ptr<quorvel::VersionStore> versions_;
};

}  // namespace kelvane
