// The names of items, releases and platforms, which become parts of paths and of URLs.
#pragma once

#include <string>
#include <string_view>

// The text with control characters written as "\xNN": a message with it stays one line, and
// harmless to a terminal.
std::string printable(std::string_view text);

// Throws Error unless every reader takes `name` for what it is: one path component that also stands
// for itself in what curl and tar are given. `what` says in the message what it names; `appended`
// is what the file's name has behind it.
void check_name(const char* what, const std::string& name, const char* appended = "");
