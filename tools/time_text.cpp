#include "tools/time_text.h"

namespace runenv {

static std::string text_of(const tm* parts, const char* format) {
  char text[sizeof "2026-11-21T09:30:00Z"];
  return parts != nullptr && std::strftime(text, sizeof text, format, parts) != 0 ? text : "";
}

std::string local_time_text(std::time_t time) {
  tm parts;
  return text_of(localtime_r(&time, &parts), "%Y-%m-%d %H:%M");
}

std::string utc_time_text(std::time_t time) {
  tm parts;
  return text_of(gmtime_r(&time, &parts), "%Y-%m-%dT%H:%M:%SZ");
}

}  // namespace runenv
