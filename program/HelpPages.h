#pragma once

#include <string>

#include "program/CommandLine.h"

/// The help pages, made from the table of commands. No line is longer than 79 columns, unless it is a single word or a
/// line of the table that is shown as it is.
namespace kelvane {

/// The page of one command: what it does, its usage, its words and options, and its notes. Ends with a line feed.
std::string helpOn(const Command& command);

/// The page of the program: what it is, its commands in the order of the table, and how to begin. Ends with a line
/// feed.
std::string helpOn(Commands commands);

/// The program's name and version: "kelvane 1.0.0" and a line feed.
std::string versionLine();

}  // namespace kelvane
