#pragma once

#include <memory>

#include "platform/QuorvelLibrary.h"
#include "protocol/Tool.h"

/// The tools that read the library. They take no lock and change nothing; the library and the version store are const
/// to them. None recurses on the depth of the library.
namespace kelvane {

/// "list_scripts": the library as a tree, in the library's order.
Tool listScripts(std::shared_ptr<const quorvel::ScriptLibrary> library);

/// "list_folders": every folder in a flat list, each followed by the folders in it.
Tool listFolders(std::shared_ptr<const quorvel::ScriptLibrary> library);

/// "list_versions": a script's saved versions, newest first.
Tool listVersions(std::shared_ptr<const quorvel::ScriptLibrary> library,
                  std::shared_ptr<const quorvel::VersionStore> versions);

/// "read_script": a script's whole text, byte for byte.
Tool readScript(std::shared_ptr<const quorvel::ScriptLibrary> library);

}  // namespace kelvane
