// Times for people and for programs.
#pragma once

#include <ctime>
#include <string>

namespace runenv {

// Such as "2026-11-21 09:30", where this machine is.
std::string local_time_text(std::time_t time);

// Such as "2026-11-21T09:30:00Z". Beyond the years of four digits, nothing.
std::string utc_time_text(std::time_t time);

}  // namespace runenv
