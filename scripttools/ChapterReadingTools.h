#pragma once

#include <memory>

#include "platform/QuorvelLibrary.h"
#include "protocol/Tool.h"

/// The tools that read a script's chapters. They take no lock and change nothing; the library is const to them.
namespace kelvane {

/// "list_chapters": position, title, words and starting time of each chapter.
Tool listChapters(std::shared_ptr<const quorvel::ScriptLibrary> library);

/// "read_chapter": one chapter's text without its heading and without white space at its start and end.
Tool readChapter(std::shared_ptr<const quorvel::ScriptLibrary> library);

}  // namespace kelvane
