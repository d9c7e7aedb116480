// Internal: the names in the tree of a distribution server. A local run-time environment has the
// same names, except kTreeRoot.
#pragma once

namespace runenv::Layout {

inline constexpr char kTreeRoot[] = "2";
inline constexpr char kEnvironment[] = "runenv";
inline constexpr char kPlatform[] = "platform";         // contains a directory for each version
inline constexpr char kSystemTypes[] = "system-types";  // contains NAME/VERSION directories
inline constexpr char kLatest[] = "latest";             // the file that names the current release
inline constexpr char kArchiveExtension[] = ".tar.gz";  // follows the name of a platform
inline constexpr char kDefaultPlatform[] = "linux-x64";

}  // namespace runenv::Layout
