#pragma once

#include <memory>

#include "platform/QuorvelLibrary.h"
#include "protocol/Tool.h"

/// The tools that look at the library. They change nothing: what they share they can only read.
namespace kelvane {

/// "list_scripts": the library as a tree. "list_folders": its folders, flat.
Tool listScripts(std::shared_ptr<const quorvel::ScriptLibrary> library);
Tool listFolders(std::shared_ptr<const quorvel::ScriptLibrary> library);

/// "list_versions": what history holds of a script.
Tool listVersions(std::shared_ptr<const quorvel::ScriptLibrary> library,
                  std::shared_ptr<const quorvel::VersionStore> versions);

/// "read_script": a script's text, as it stands.
Tool readScript(std::shared_ptr<const quorvel::ScriptLibrary> library);

}  // namespace kelvane
