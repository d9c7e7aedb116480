// Pages made of a text and values.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace runenv {

// Returns the text with its tags replaced:
//
//   {{name}}            the value of that name, a text or a number, with what HTML takes for markup
//                       escaped
//   {{#name}} {{/name}}  what is in between, once for each element of an array, or once if the
//                       value is an object, a text or true. Names are looked up in the element
//                       first, then around it.
//   {{^name}} {{/name}}  what is in between, if the value is missing, false or empty
//
// A section has none of the same name in it. Throws std::exception for a tag without its end.
std::string fill_template(std::string_view text, const nlohmann::json& values);

}  // namespace runenv
