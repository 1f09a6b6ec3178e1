#include "quorvel/files/FileSwap.h"

#include <chrono>
#include <new>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/files/WaitForWriters.h"
#include "quorvel/files/WholeFile.h"

namespace quorvel {
namespace {

// How often the files change places in all, until no other program comes in between. Each time takes microseconds.
constexpr int mostExchanges = 10;

std::error_code noMemory() noexcept {
  return std::make_error_code(std::errc::not_enough_memory);
}

}  // namespace

FileSwap::FileSwap(const SystemCalls& calls, int folder, std::string_view name, TemporaryFile& fresh,
                   std::string_view text)
    : calls_(calls), folder_(folder), name_(name), fresh_(fresh), text_(text) {
}

std::error_code FileSwap::make() {
  const std::error_code error = exchange(fresh_.identity());
  if (!error) fresh_.leave();
  return error;
}

// Only other programs change what is in the place; they can save between any two of our steps. A save is seen when it
// comes out: then it is not what went in. It goes back in at once, and what comes out next tells whether it was the
// last one. What stood there without being read, for want of memory or by a failure of the disk, may or may not have
// been saved anew when it comes out.
FileSwap::Undone FileSwap::undo() noexcept {
  Content inPlace{fresh_.identity(), {}, {}};  // its text is `text_`
  Content newest = look();
  // From now on either file was to be read in the place once, which the name has to say before they swap.
  try {
    fresh_.markReplaced();
  } catch (const std::system_error& error) {
    return {Undone::notTakenOut, error.code()};
  } catch (const std::bad_alloc&) {
    return {Undone::notTakenOut, noMemory()};
  }
  for (int count = 1; count < mostExchanges; ++count) {
    if (const std::error_code error = exchange(newest.file))
      return {count == 1 ? Undone::notTakenOut : Undone::unclear, error};
    Content out = look();
    const bool isSameFile = out.file == inPlace.file;
    if (out.error && (isSameFile || !out.file)) return {Undone::unclear, out.error};
    if (inPlace.error && (isSameFile || !inPlace.file)) return {Undone::unclear, inPlace.error};
    const bool isAsItWentIn = out.text && (count == 1 ? *out.text == text_ : out.text == inPlace.text);
    if (isSameFile && isAsItWentIn) {
      if (count > 1) return {Undone::savedMeanwhile};
      // The new file goes only once it is sure that a power failure cannot bring it back to the other's place.
      if (calls_.flushFolder(folder_) == 0) fresh_.remove();
      return {Undone::done};
    }
    inPlace = std::exchange(newest, std::move(out));
  }
  return {Undone::savedAllTheTime};
}

// `goingIn` is what has the temporary name before. A disk over the network may have done what it says that it could not
// do: then something else has that name.
std::error_code FileSwap::exchange(const std::optional<FileIdentity>& goingIn) const noexcept {
  if (calls_.exchange(folder_, fresh_.name().c_str(), name_.c_str()) == 0) return {};
  const std::error_code error = lastError();
  const auto out = identityOf(folder_, fresh_.name());
  return out && goingIn && *out != *goingIn ? std::error_code() : error;
}

// Whoever has the file open for writing is about to save, so its text counts as another one; so does one that grows.
FileSwap::Content FileSwap::look() const noexcept {
  Content content;
  const auto identity = identityOf(folder_, fresh_.name());
  if (!identity) return content.error = identity.error(), content;
  content.file = *identity;
  try {
    const auto file = openToRead(folder_, fresh_.name());
    if (!file) return content.error = file.error(), content;
    if (!waitForWriters(file->get(), std::chrono::milliseconds(0))) return content;
    auto text = readToEnd(file->get(), calls_);
    if (text) {
      content.text = *std::move(text);
    } else if (text.error() != std::errc::device_or_resource_busy && text.error() != std::errc::file_too_large) {
      content.error = text.error();
    }
  } catch (const std::bad_alloc&) {
    content.error = noMemory();
  }
  return content;
}

}  // namespace quorvel
