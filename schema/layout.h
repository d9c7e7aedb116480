// The names in the tree that a distribution server serves; those below kTreeRoot are also the names
// in the environment that is made from it.
#pragma once

namespace runenv::Layout {

inline constexpr char kTreeRoot[] = "2";
inline constexpr char kEnvironment[] = "runenv";
inline constexpr char kPlatform[] = "platform";         // by version
inline constexpr char kSystemTypes[] = "system-types";  // by name and version
inline constexpr char kLatest[] = "latest";             // the pointer of an item: its release
inline constexpr char kArchiveExtension[] = ".tar.gz";  // behind the name of a platform
inline constexpr char kDefaultPlatform[] = "linux-x64";

}  // namespace runenv::Layout
