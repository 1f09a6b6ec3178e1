#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// What standard output is, and what a person at a terminal gets there.
namespace kelvane {

/// Whether standard output is a terminal.
bool outputIsTerminal();

/// Whether text may be coloured: standard output is a terminal that can, and NO_COLOR (no-color.org) is not set.
bool mayColour();

/// The columns of the terminal; 79 if there is none, or it does not say.
std::size_t terminalWidth();

/// Writes a long text to standard output. At a terminal, the person's pager shows it: the command in $PAGER, else
/// "less -FRX", which ends by itself if the text fits. Without a pager, or at a terminal that TERM calls dumb or does
/// not name, the text is written as it is. Throws std::system_error if it cannot be written.
void printPages(const std::string& text);

}  // namespace kelvane
