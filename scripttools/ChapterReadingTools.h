#pragma once

#include <memory>

#include "platform/QuorvelLibrary.h"
#include "protocol/Tool.h"

/// The tools that look at a script's chapters. They change nothing: what they share they can only read.
namespace kelvane {

/// "list_chapters": position, title, words and starting time of each chapter.
Tool listChapters(std::shared_ptr<const quorvel::ScriptLibrary> library);

/// "read_chapter": one chapter's text without its heading and without white space at its ends.
Tool readChapter(std::shared_ptr<const quorvel::ScriptLibrary> library);

}  // namespace kelvane
