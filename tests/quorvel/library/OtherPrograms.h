#pragma once

#include <fcntl.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>

#include "quorvel/files/WaitForWriters.h"
#include "tests/quorvel/library/LibraryHouse.h"

namespace quorvel {

/// How versions begin in a story that were kept because another program had saved them meanwhile.
inline constexpr const char* meanwhile = "Before — saved by another program meanwhile: ";

/// Programs that take no lock and save a script while it is being replaced.
class OtherPrograms : public LibraryHouse {
 protected:
  explicit OtherPrograms(const std::filesystem::path& parent = std::filesystem::temp_directory_path())
      : LibraryHouse(parent) {
    put("Talk.md", "old");
    history->snapshot("old", root / "Talk.md", "kept");
  }

  /// The two ways in which programs save.
  void saveInPlace(std::string_view text) const { put("Talk.md", text); }
  void saveByRenaming(std::string_view text) const {
    put("Talk.md~", text);
    std::filesystem::rename(root / "Talk.md~", root / "Talk.md");
  }

  /// Whether the new text is about to be renamed over the old one, where files cannot be swapped: it is complete then.
  bool isAboutToBeRenamedOver(std::string_view call) const {
    const auto all = names();
    return call == "rename" && std::any_of(all.begin(), all.end(), [this](const std::string& name) {
             return name.starts_with(TemporaryName::prefix) && bytesOf(name) == "new";
           });
  }

  bool systemTells() const {
    const Descriptor writer(::open((root / "Talk.md").c_str(), O_WRONLY | O_CLOEXEC));
    const Descriptor reader(::open((root / "Talk.md").c_str(), O_RDONLY | O_CLOEXEC));
    return !waitForWriters(reader.get(), std::chrono::milliseconds(0));
  }

  void damageHistory() const { put(".kelvane/history.sqlite", std::string(8192, 'x')); }

  void writeNew() { library.write("new", script("Talk.md")); }
};

}  // namespace quorvel
