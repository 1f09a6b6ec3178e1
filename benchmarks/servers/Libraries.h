#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

/// Libraries of any size, made by the quickest way there is.
namespace kelvane::benchmarks {

/// The folder for files in memory, where flushing costs nothing; the temporary folder where the system has none.
std::filesystem::path memoryFolder();

/// Text as people write it: lines of 80 characters, some with quotes and accents, behind a heading.
std::string prose(std::size_t size);

/// A script of that many chapters, of at least `size` bytes in total.
std::string chapters(std::size_t count, std::size_t size = 0);

/// That many empty scripts in folders of 20, in the folder `All` of the library. Folders are made as needed.
void addLibrary(const std::filesystem::path& library, std::size_t scripts);

/// That many empty scripts in the library's root.
void addScripts(const std::filesystem::path& library, std::size_t scripts);

/// Gives `script`, which must have a version already, that many versions, each with another text. They are put into the
/// history's file as the server would have left them, but for the hashes, which are random.
void addVersions(const std::filesystem::path& library, std::size_t versions);

/// As `addVersions`, but a version each of that many scripts in the folder `All`.
void addHistories(const std::filesystem::path& library, std::size_t scripts);

}  // namespace kelvane::benchmarks
