#include "tools/served_index.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>

#include "fs/path.h"
#include "schema/layout.h"
#include "tools/page_text.h"
#include "tools/size_text.h"
#include "tools/template.h"
#include "tools/time_text.h"

namespace runenv {

using nlohmann::json;
using nlohmann::ordered_json;

// Returns the path encoded for a URL.
static std::string url_path(const std::string& path) {
  static constexpr char kPlain[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
  std::string result;
  for (const char c : path) {
    if (std::strchr(kPlain, c) != nullptr) {
      result += c;
    } else {
      char code[sizeof "%NN"];
      std::snprintf(code, sizeof code, "%%%02X", static_cast<unsigned>(c) & 0xff);
      result += code;
    }
  }
  return result;
}

static ordered_json to_json(const ListedItem& item, const ListedRelease& release) {
  auto archives = ordered_json::array();
  for (const ListedArchive& archive : release.archives) {
    archives.push_back({{"platform", archive.platform},
                        {"path", url_path(path_of_archive(item, release, archive))},
                        {"bytes", archive.bytes}});
  }
  return {{"name", release.name},
          {"published", utc_time_text(release.published)},
          {"bytes", release.bytes},
          {"archives", archives}};
}

static ordered_json to_json(const ListedItem& item) {
  ordered_json result{{"name", item.name},
                      {"pointer", url_path(path_of_item(item.name, Layout::kLatest))}};
  if (item.latest) {
    result["latest"] = *item.latest;
    result["since"] = utc_time_text(item.since);
  }
  if (!item.problem.empty()) {
    result["problem"] = item.problem;
  }
  result["bytes"] = item.bytes;
  result["releases"] = ordered_json::array();
  for (const ListedRelease& release : item.releases) {
    result["releases"].push_back(to_json(item, release));
  }
  return result;
}

static std::string dump(const ordered_json& value, int indent) {
  return value.dump(indent, ' ', false, ordered_json::error_handler_t::replace);
}

// Returns the text with all bytes replaced that are not UTF-8.
static std::string valid_utf8(const std::string& text) {
  return json::parse(dump(text, -1));
}

std::string to_json(const Listing& listing, int indent) {
  ordered_json result{{"items", ordered_json::array()}};
  for (const ListedItem& item : listing.items) {
    result["items"].push_back(to_json(item));
  }
  return dump(result, indent) + "\n";
}

namespace {

// The times of the oldest and of the newest release. They are the ends of each picture's time axis.
struct Period {
  std::time_t from = 0, to = 0;
};

}  // namespace

static Period period_of(const Listing& listing) {
  std::vector<std::time_t> times;
  for (const ListedItem& item : listing.items) {
    for (const ListedRelease& release : item.releases) {
      times.push_back(release.published);
    }
  }
  if (times.empty()) {
    return {};
  }
  const auto [from, to] = std::minmax_element(times.begin(), times.end());
  return {*from, *to};
}

// Such as "2026-11-21".
static std::string day_of(std::time_t time) {
  const std::string text = utc_time_text(time);
  return text.substr(0, text.find('T'));
}

// Such as "09:30".
static std::string minute_of(std::time_t time) {
  const std::string text = utc_time_text(time);
  return text.empty() ? "" : text.substr(text.find('T') + 1, sizeof "00:00" - 1);
}

// Returns the picture of an item. Each release is a vertical line: its position is the time, its
// height the size of the archives. Of lines at the same position only the highest is drawn.
static json picture_of(const ListedItem& item, const Period& period) {
  static constexpr double kWidth = 988, kHeight = 34;
  static constexpr long kLeft = 6, kBottom = 46, kLeast = 4;
  if (item.releases.empty()) {
    return {{"lines", ""}};
  }
  uint64_t largest = 1;
  for (const ListedRelease& release : item.releases) {
    largest = std::max(largest, release.bytes);
  }
  const double length = std::difftime(period.to, period.from);
  const auto start = [](long x) { return "M" + std::to_string(x) + " " + std::to_string(kBottom); };
  std::map<long, long> heights;
  std::string lines, latest_line;
  for (const ListedRelease& release : item.releases) {
    const double way = length == 0 ? 1 : std::difftime(release.published, period.from) / length;
    const double part = static_cast<double>(release.bytes) / static_cast<double>(largest);
    const long x = kLeft + std::lround(way * kWidth);
    const long height = kLeast + std::lround(part * kHeight);
    heights[x] = std::max(heights[x], height);
    if (release.name == item.latest) {
      latest_line = start(x) + "V" + std::to_string(kBottom - height);
    }
  }
  for (const auto& [x, height] : heights) {
    lines += start(x) + "v-" + std::to_string(height);
  }
  return {{"lines", lines},
          {"latest_line", latest_line},
          {"from", day_of(period.from)},
          {"to", day_of(period.to)},
          {"oldest", day_of(item.releases.back().published)},
          {"newest", day_of(item.releases.front().published)},
          {"largest", size_text(largest)}};
}

static json archives_shown(const ListedItem& item, const ListedRelease& release) {
  json result = json::array();
  for (const ListedArchive& archive : release.archives) {
    result.push_back({{"platform", archive.platform},
                      {"path", url_path(path_of_archive(item, release, archive))},
                      {"size", size_text(archive.bytes)}});
  }
  return result;
}

// Returns the table of the releases from index `begin` up to, but not including, `end`.
static json table_of(const ListedItem& item, size_t begin, size_t end) {
  json releases = json::array();
  for (size_t i = begin; i < end; ++i) {
    const ListedRelease& release = item.releases[i];
    releases.push_back({{"name", release.name},
                        {"is_latest", release.name == item.latest},
                        {"published", utc_time_text(release.published)},
                        {"day", day_of(release.published)},
                        {"minute", minute_of(release.published)},
                        {"size", size_text(release.bytes)},
                        {"archives", archives_shown(item, release)}});
  }
  return {{"summary", begin == 0 ? "" : count_text(end - begin, "older release")},
          {"releases", releases}};
}

// Returns a table of the newest releases and, if there are more, a folded one of the others.
static json tables_of(const ListedItem& item, size_t shown) {
  static constexpr size_t kAtOnce = 5;
  json result = json::array();
  result.push_back(table_of(item, 0, std::min(shown, kAtOnce)));
  if (shown > kAtOnce) {
    result.push_back(table_of(item, kAtOnce, shown));
  }
  return result;
}

// Returns the values for one item: its `most` newest releases, and the archives of the latest one.
static json item_shown(const ListedItem& item, const Period& period, size_t most) {
  const size_t count = item.releases.size(), shown = std::min(count, most);
  const auto latest =
      std::find_if(item.releases.begin(), item.releases.end(),
                   [&](const ListedRelease& release) { return release.name == item.latest; });
  json result{{"name", item.name},
              {"anchor", url_path(valid_utf8(item.name))},
              {"pointer", url_path(path_of_item(item.name, Layout::kLatest))},
              {"problem", item.problem},
              {"latest", item.latest.value_or("")},
              {"since", item.latest ? utc_time_text(item.since) : ""},
              {"day", day_of(item.since)},
              {"minute", minute_of(item.since)},
              {"count", count_text(count, "release")},
              {"number", std::to_string(count)},
              {"size", size_text(item.bytes)},
              {"tables", tables_of(item, shown)},
              {"not_shown", count == shown ? "" : count_text(count - shown, "release")}};
  if (latest != item.releases.end()) {
    result["latest_archives"] = archives_shown(item, *latest);
  }
  result.update(picture_of(item, period));
  return result;
}

// Returns how many releases of each item the page shows, given the number of items.
static size_t releases_shown(size_t items) {
  static constexpr size_t kTogether = 1000, kLeast = 3, kMost = 50;
  return std::clamp(kTogether / std::max<size_t>(items, 1), kLeast, kMost);
}

std::string to_page(const Listing& listing) {
  const Period period = period_of(listing);
  std::time_t changed = period.to;
  uint64_t bytes = 0;
  json items = json::array();
  for (const ListedItem& item : listing.items) {
    changed = std::max(changed, item.since);
    bytes += item.bytes;
    items.push_back(item_shown(item, period, releases_shown(listing.items.size())));
  }
  return valid_utf8(fill_template(kPageText, {{"counts", counts_text(listing)},
                                              {"size", size_text(bytes)},
                                              {"changed", utc_time_text(changed)},
                                              {"day", changed != 0 ? day_of(changed) : ""},
                                              {"minute", minute_of(changed)},
                                              {"nothing", items.empty()},
                                              {"any", !items.empty()},
                                              {"items", items}}));
}

}  // namespace runenv
