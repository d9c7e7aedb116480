// The names of items, releases and platforms, which become parts of paths and of URLs.
#pragma once

#include <string>
#include <string_view>

namespace runenv {

// The text with each control character written as "\xNN". In a message it takes one line and does
// nothing to a terminal.
std::string printable(std::string_view text);

// What follows the last "/" of the path.
std::string_view last_component(std::string_view path);

// Throws Error unless `name` is one path component that every reader takes as it is, curl and tar
// included. `what` stands for it in the message. `appended` follows it in the name of its file,
// which must not get too long.
void check_name(const char* what, const std::string& name, const char* appended = "");

}  // namespace runenv
