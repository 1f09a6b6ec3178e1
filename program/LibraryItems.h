#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/QuorvelLibrary.h"

/// What is in a library, as a flat list.
namespace kelvane {

/// A script or a folder.
struct LibraryItem {
  std::string identifier;  ///< "Talks/Opening.md"
  std::string name;        ///< "Opening"
  quorvel::ScriptItem::Kind kind = quorvel::ScriptItem::Kind::script;
  std::size_t depth = 0;  ///< How many folders it is in.

  bool isFolder() const noexcept { return kind == quorvel::ScriptItem::Kind::folder; }
};

/// Every item in the order that a person sees, a folder before what is in it. Takes linear time and does not recurse,
/// however deep the library nests. Throws what the library throws.
std::vector<LibraryItem> itemsOf(const quorvel::ScriptLibrary& library);

/// The end of a message about an identifier at which nothing is: ` Did you mean "Talks/Opening.md"?`. Empty if nothing
/// is near, or the library cannot be listed.
///
/// Of the items, the first one is chosen that differs only by letter case, accents, normal form or its extension; else
/// the first that has the same name in another folder; else the nearest by typing errors (program/Nearest.h).
std::string suggestedItem(std::string_view identifier, const quorvel::ScriptLibrary& library);

}  // namespace kelvane
