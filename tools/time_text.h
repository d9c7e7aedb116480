// Times as text for people and for programs.
#pragma once

#include <ctime>
#include <string>

namespace runenv {

// Returns a text such as "2026-11-21 09:30", in the time zone of this machine.
std::string local_time_text(std::time_t time);

// Returns a text such as "2026-11-21T09:30:00Z", or "" for a year of more than four digits.
std::string utc_time_text(std::time_t time);

}  // namespace runenv
