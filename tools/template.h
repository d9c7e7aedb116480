// Pages made of a text and values.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace runenv {

// Returns the text with its tags replaced by the values, which are those of an object:
//
//   {{name}}             the text of that name, with what HTML takes for markup escaped
//   {{#name}} {{/name}}  what is in between: for an array, once for each element, with the values
//                        of that element; for true, or a text that is not empty, once
//
// A section has none of the same name in it. Throws std::exception for a name without a value and
// for a tag without its end.
std::string fill_template(std::string_view text, const nlohmann::json& values);

}  // namespace runenv
