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

// Returns whether `name` is a temporary name, such as ".runenv-publish#abcdef". The programs use
// such names while they write or remove something.
bool is_temporary_name(std::string_view name);

// Throws Error unless `name` is a single path component without characters that are special to
// curl, tar, servers or pointers. `name` and `appended` together must fit into a file name. `what`
// is the kind of name, for the message.
void check_name(const char* what, const std::string& name, const char* appended = "");

}  // namespace runenv
