// The page of tools/page, with its style in it, as the build puts it into the program.
#pragma once

namespace runenv {

extern const char kPageText[];

}  // namespace runenv
