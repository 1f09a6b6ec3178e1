#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include "platform/Unicode.h"
#include "platform/unicode/Scalars.h"
#include "platform/unicode/UTF8.h"

/// How canonical forms are made without memory from the heap.
///
/// `order` and `equivalent` must never fail, so they compare two canonical forms that are produced piece by piece, in a
/// fixed amount of memory. Each class below reads from the one above it:
///
/// - `Parts` decomposes scalars: "é" becomes "e" and an acute accent.
/// - `OrderedParts` puts each run of marks in canonical order, by combining class. A run has no maximum length, so it
/// is
///   not sorted: it is read once for each class in it, lowest first. Unicode has about fifty classes, so this is
///   linear.
/// - `ComposedParts` composes again, by the algorithm of Unicode Standard Annex #15.
/// - `CanonicalForm` skips all this for what is composed already, and returns such stretches as views of the text. Only
///   what is between two scalars at which composition can start goes through the others.
///
/// The objects are small and have no pointers into each other, so a copy is a bookmark: reading ahead means reading
/// from a copy.

namespace kelvane::unicode {

namespace {

using Scalar = utf8proc_int32_t;

constexpr Scalar none = -1;

// The Canonical_Combining_Class. 0 for `none`, too.
int combiningClass(Scalar scalar) noexcept {
  return utf8proc_get_property(scalar)->combining_class;
}

// The offset of the first scalar at or after `offset` at which composition cannot start, or the text's size. A text
// without such a scalar is its own canonical form: it is composed, or it is not UTF-8.
std::size_t plainEnd(std::string_view text, std::size_t offset) noexcept {
  while ((offset = asciiEnd(text, offset)) < text.size()) {
    do {
      const Decoded decoded = decodedAt(text, offset);
      if (!startsComposition(decoded.scalar)) return offset;
      offset += decoded.size;
    } while (offset < text.size() && static_cast<unsigned char>(text[offset]) >= 0x80);
  }
  return offset;
}

// The scalars of a valid text, each decomposed, in the text's order.
class Parts {
 public:
  explicit Parts(std::string_view text) noexcept : text_(text) {}

  // The next part, or `none` at the end.
  Scalar next() noexcept {
    if (at_ < count_) return parts_[at_++];
    if (text_.empty()) return none;
    const Decoded decoded = decodedAt(text_, 0);
    text_.remove_prefix(decoded.size);
    const auto scalar = static_cast<Scalar>(decoded.scalar);
    const bool isWhole = utf8proc_get_property(scalar)->decomp_seqindex == static_cast<utf8proc_uint16_t>(-1);
    if (isWhole && !isHangulSyllable(scalar)) return scalar;
    int lastClass = 0;
    constexpr std::size_t most = std::tuple_size_v<decltype(parts_)>;
    count_ =
        static_cast<std::size_t>(utf8proc_decompose_char(scalar, parts_.data(), most, UTF8PROC_DECOMPOSE, &lastClass));
    at_ = 1;
    return parts_[0];
  }

 private:
  static bool isHangulSyllable(Scalar scalar) noexcept { return scalar >= 0xAC00 && scalar <= 0xD7A3; }

  std::string_view text_;
  std::array<Scalar, 4> parts_{};  // no scalar has more; the first is returned at once
  std::size_t at_ = 0;
  std::size_t count_ = 0;
};

// The same with each run of marks in canonical order: by combining class, and in the text's order within a class.
class OrderedParts {
 public:
  explicit OrderedParts(std::string_view text) noexcept : parts_(text) {}

  Scalar next() noexcept {
    while (true) {
      if (!inRun_) run_ = parts_;
      const Scalar part = parts_.next();
      const int itsClass = combiningClass(part);
      if (itsClass != 0) {
        inRun_ = true;
        if (itsClass == class_) return part;
        if (itsClass > class_ && (nextClass_ == 0 || itsClass < nextClass_)) nextClass_ = itsClass;
      } else if (nextClass_ != 0) {  // marks are left
        class_ = std::exchange(nextClass_, 0);
        parts_ = run_;
      } else {
        class_ = 0;
        inRun_ = false;
        return part;
      }
    }
  }

 private:
  Parts parts_;
  Parts run_{{}};  // where the run of marks starts
  bool inRun_ = false;
  int class_ = 0;      // of the marks that are returned now; 0 in the pass that looks for the lowest class
  int nextClass_ = 0;  // the lowest class above that was seen in this pass; 0 if there is none
};

// What two scalars compose to, or `none`.
Scalar composed(Scalar first, Scalar second) noexcept {
  if (first == none) return none;
  Scalar pair[] = {first, second};
  const auto options = static_cast<utf8proc_option_t>(UTF8PROC_COMPOSE | UTF8PROC_STABLE);
  return utf8proc_normalize_utf32(pair, 2, options) == 1 ? pair[0] : none;
}

// The scalars of a valid text's canonical composition (Unicode Standard Annex #15). A starter is complete only when its
// last mark is read, but must be returned before those marks that stay. So its marks are read twice: from a copy, for
// the starter, and then again for the marks that stay.
class ComposedParts {
 public:
  explicit ComposedParts(std::string_view text) noexcept : parts_(text) {}

  // The next scalar, or `none` at the end.
  Scalar next() noexcept {
    while (true) {
      const Scalar part = parts_.next();
      if (part == none) return none;
      if (goesIntoStarter(part)) continue;
      return combiningClass(part) == 0 ? finishedStarter(*this) : part;
    }
  }

 private:
  // Whether the part composes with the starter. If not, it is a new starter, or a mark that stays and blocks later
  // marks of its class and below.
  bool goesIntoStarter(Scalar part) noexcept {
    const int itsClass = combiningClass(part);
    if (itsClass > highestClass_) {
      if (const Scalar both = composed(starter_, part); both != none) {
        starter_ = both;
        return true;
      }
      highestClass_ = itsClass;
    }
    if (itsClass == 0) {
      starter_ = part;
      highestClass_ = -1;
    }
    return false;
  }

  static Scalar finishedStarter(ComposedParts ahead) noexcept {
    Scalar starter = ahead.starter_;
    while (true) {
      const Scalar part = ahead.parts_.next();
      if (part == none) return starter;
      if (ahead.goesIntoStarter(part)) {
        starter = ahead.starter_;
      } else if (combiningClass(part) == 0) {
        return starter;
      }
    }
  }

  OrderedParts parts_;
  Scalar starter_ = none;
  int highestClass_ = -1;  // of the marks after the starter that stay
};

// A text's canonical form, in pieces.
class CanonicalForm {
 public:
  explicit CanonicalForm(std::string_view text) noexcept
      : rest_(text), isTheText_(plainEnd(text, 0) == text.size() || !isValidUTF8(text)) {}

  // The next piece, which is valid until the next call. Empty only at the end.
  std::string_view next() noexcept {
    while (true) {
      if (const Scalar scalar = parts_.next(); scalar != none) {
        return {bytes_.data(),
                static_cast<std::size_t>(encode(static_cast<char32_t>(scalar), bytes_.data()) - bytes_.data())};
      }
      if (isTheText_ || rest_.empty()) return std::exchange(rest_, {});
      // The stretch to compose starts at a scalar where composition can start, and ends before the next such scalar.
      // U+11A7 is one of those, which matters: utf8proc would drop it after a Hangul syllable.
      std::size_t end = plainEnd(rest_, 0);
      std::size_t begin = end;
      if (end > 0 && end < rest_.size()) begin -= decodedBefore(rest_, end).size;
      while (end < rest_.size()) {
        const Decoded decoded = decodedAt(rest_, end);
        if (startsComposition(decoded.scalar)) break;
        end += decoded.size;
      }
      const std::string_view plain = rest_.substr(0, begin);
      parts_ = ComposedParts(rest_.substr(begin, end - begin));
      rest_.remove_prefix(end);
      if (!plain.empty()) return plain;
    }
  }

 private:
  std::string_view rest_;
  bool isTheText_;
  ComposedParts parts_{{}};
  std::array<char, 4> bytes_{};
};

}  // namespace

std::string canonicalForm(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  CanonicalForm form(text);
  for (std::string_view piece = form.next(); !piece.empty(); piece = form.next()) result.append(piece);
  return result;
}

bool equivalent(std::string_view left, std::string_view right) noexcept {
  // Equivalent strings have one decomposition. It has at most four scalars for each scalar of either string and at
  // least one, and a scalar has one to four bytes. So a string of megabytes is compared with short ones in no time.
  constexpr std::size_t mostBytesPerByte = 16;
  if (left.size() / mostBytesPerByte > right.size() || right.size() / mostBytesPerByte > left.size()) return false;
  if (left == right) return true;
  const bool areASCII = isASCII(left) && isASCII(right);  // then they are their own canonical forms
  return !areASCII && order(left, right) == 0;
}

std::strong_ordering order(std::string_view left, std::string_view right) noexcept {
  CanonicalForm leftForm(left);
  CanonicalForm rightForm(right);
  std::string_view leftPiece;
  std::string_view rightPiece;
  while (true) {
    if (leftPiece.empty()) leftPiece = leftForm.next();
    if (rightPiece.empty()) rightPiece = rightForm.next();
    const std::size_t length = std::min(leftPiece.size(), rightPiece.size());
    if (length == 0) return leftPiece.size() <=> rightPiece.size();
    if (const int order = leftPiece.substr(0, length).compare(rightPiece.substr(0, length)); order != 0) {
      return order <=> 0;
    }
    leftPiece.remove_prefix(length);
    rightPiece.remove_prefix(length);
  }
}

}  // namespace kelvane::unicode
