#include "program/ManualPage.h"
#include "program/Process.h"
#include "program/commands/Commands.h"

namespace kelvane::commands {
namespace {

int run(const Arguments&) {
  print(manualPage(all()));
  return done;
}

}  // namespace

constinit const Command manualCommand = {
    .name = "manual",
    .summary = "Print the manual page, for \"man -l -\".",
    .about = "Prints the manual page of this program, in the format of man. To read it, run: kelvane manual | man -l -",
    .run = run,
};

}  // namespace kelvane::commands
