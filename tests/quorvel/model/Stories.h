#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "protocol/JSON.h"
#include "tests/quorvel/model/ModelTools.h"

/// What clients and other programs may do to a library, in any order.
namespace quorvel::tests {

/// A call of a tool, or one of the things that other programs do: "save" a file's bytes ("id", "text"), with the
/// folders above it; "delete" a file or a folder with all in it ("id"); "move" either to a free place in the same
/// folder ("id", "to").
struct Step {
  std::string act;
  kelvane::JSON::Object arguments;

  /// Whether it is the act of another program.
  bool isFromOutside() const;

  std::string described() const;
};

/// What that step of another program does to files. Nothing where they do not allow it, so that any selection of a
/// story's steps is a story too. The answer is whether it did anything.
bool applyFromOutside(const Step& step, ModelTools& model);

/// Any story of so many steps: names of every kind, texts of every kind, and arguments that are left out, of the wrong
/// type, empty or nonsense. Most name what is there when their turn comes, which the model tells.
std::vector<Step> anyStory(std::uint64_t seed, std::size_t length);

/// The failing story without the stretches that it fails without, too.
std::vector<Step> shrunk(std::vector<Step> story, const std::function<bool(const std::vector<Step>&)>& fails);

}  // namespace quorvel::tests
