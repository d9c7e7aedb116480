// Fills a template with values.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace runenv {

// Returns `text` with its tags replaced by the members of the JSON object `values`:
//
//   {{name}}             the string `name`, escaped for HTML
//   {{#name}} {{/name}}  a section: repeated for each element of an array, with the members of that
//                        element; left out for false or ""; otherwise used once
//
// A section cannot contain a section of the same name. Throws std::exception for a name without a
// value and for a tag without its end.
std::string fill_template(std::string_view text, const nlohmann::json& values);

}  // namespace runenv
