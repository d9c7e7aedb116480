// The names of items, releases and platforms, which become parts of paths and of URLs.
#pragma once

#include <string>
#include <string_view>

namespace runenv {

// Returns the text with each control character written as "\xNN", so that a message is one line and
// harmless to a terminal.
std::string printable(std::string_view text);

// Returns the part of the path after the last "/".
std::string_view last_component(std::string_view path);

// Returns whether it is the name of something that a program of this system is writing or removing,
// such as ".runenv-publish#abcdef".
bool is_temporary_name(std::string_view name);

// Throws Error unless `name` is one path component without characters that are special to curl,
// tar, servers or pointers. `what` is its kind, for the message. Its file is called `name` followed
// by `appended`, which must not be too long.
void check_name(const char* what, const std::string& name, const char* appended = "");

}  // namespace runenv
