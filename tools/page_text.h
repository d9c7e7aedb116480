// The template of the page from tools/page, including its style. The build generates it.
#pragma once

namespace runenv {

extern const char kPageText[];

}  // namespace runenv
