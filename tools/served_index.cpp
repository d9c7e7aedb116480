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

using nlohmann::ordered_json;

// The path for a URL that is relative to the tree.
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

static ordered_json to_json(const ListedRelease& release, const std::string& path) {
  ordered_json result{{"name", release.name},
                      {"published", utc_time_text(release.published)},
                      {"bytes", release.bytes},
                      {"archives", ordered_json::array()}};
  for (const ListedArchive& archive : release.archives) {
    fs::path_t file(path);
    file.join_ext(archive.platform.c_str(), Layout::kArchiveExtension);
    result["archives"].push_back({{"platform", archive.platform},
                                  {"path", url_path(file.cstring())},
                                  {"bytes", archive.bytes}});
  }
  return result;
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
  uint64_t bytes = 0;
  auto releases = ordered_json::array();
  for (const ListedRelease& release : item.releases) {
    bytes += release.bytes;
    releases.push_back(to_json(release, path_of_item(item.name, release.name)));
  }
  result["bytes"] = bytes;
  result["releases"] = std::move(releases);
  return result;
}

std::string to_json(const Listing& listing, int indent) {
  ordered_json result{{"items", ordered_json::array()}};
  for (const ListedItem& item : listing.items) {
    result["items"].push_back(to_json(item));
  }
  return result.dump(indent, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

namespace {

// The times of the oldest and of the newest release, which all pictures reach over.
struct Span {
  std::time_t from = 0, to = 0;
};

}  // namespace

static Span span_of(const Listing& listing) {
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
static std::string day_of(const std::string& time) {
  return time.substr(0, time.find('T'));
}

// A line for each release, from left to right by time, as high as the release is large. Lines that
// would cover each other are one.
static nlohmann::json picture_of(const ListedItem& item, const Span& span) {
  static constexpr double kWidth = 988, kHeight = 34;
  static constexpr int kLeft = 6, kBottom = 46, kLeast = 4;
  uint64_t largest = 1;
  for (const ListedRelease& release : item.releases) {
    largest = std::max(largest, release.bytes);
  }
  const double length = std::max(1.0, std::difftime(span.to, span.from));
  std::map<int, int> lines;
  std::string latest;
  for (const ListedRelease& release : item.releases) {
    const double way =
        span.to == span.from ? 1 : std::difftime(release.published, span.from) / length;
    const double part = static_cast<double>(release.bytes) / static_cast<double>(largest);
    const int x = kLeft + static_cast<int>(std::lround(way * kWidth));
    const int height = kLeast + static_cast<int>(std::lround(part * kHeight));
    lines[x] = std::max(lines[x], height);
    if (release.name == item.latest) {
      const std::string top = std::to_string(kBottom - height);
      latest = "M" + std::to_string(x) + " " + std::to_string(kBottom) + "V" + top;
    }
  }
  std::string all;
  for (const auto& [x, height] : lines) {
    all += "M" + std::to_string(x) + " " + std::to_string(kBottom) + "v-" + std::to_string(height);
  }
  const std::string from = day_of(utc_time_text(span.from)), to = day_of(utc_time_text(span.to));
  return {{"lines", all},
          {"latest_line", latest},
          {"from", from},
          {"to", to},
          {"oldest", day_of(utc_time_text(item.releases.back().published))},
          {"newest", day_of(utc_time_text(item.releases.front().published))},
          {"largest", size_text(largest)}};
}

// Adds to an object of index.json what the page says of times and sizes.
static void add_texts(const char* time, nlohmann::json* object) {
  (*object)["size"] = size_text((*object)["bytes"]);
  if (object->contains(time)) {
    const std::string text = (*object)[time];
    (*object)["day"] = day_of(text);
    (*object)["minute"] = text.empty() ? "" : text.substr(text.find('T') + 1, sizeof "00:00" - 1);
  }
}

// How many of the releases of each of so many items the page shows.
static size_t releases_shown(size_t items) {
  static constexpr size_t kTogether = 1000, kLeast = 3, kMost = 50;
  return std::clamp(kTogether / std::max<size_t>(items, 1), kLeast, kMost);
}

// Turns the releases of an object of index.json into those that the page shows at once, those that
// it unfolds, and the number of those that it does not show.
static void arrange_releases(size_t shown, nlohmann::json* item) {
  static constexpr size_t kAtOnce = 5;
  nlohmann::json first = nlohmann::json::array(), more = first;
  nlohmann::json& releases = (*item)["releases"];
  const size_t count = releases.size();
  for (size_t i = 0; i < count; ++i) {
    nlohmann::json& release = releases[i];
    const bool is_latest = item->contains("latest") && release["name"] == (*item)["latest"];
    if (i >= shown && !is_latest) {
      continue;
    }
    add_texts("published", &release);
    for (nlohmann::json& archive : release["archives"]) {
      archive["size"] = size_text(archive["bytes"]);
    }
    release["is_latest"] = is_latest;
    if (is_latest) {
      (*item)["latest_release"] = release;
    }
    if (i < shown) {
      (i < kAtOnce ? first : more).push_back(release);
    }
  }
  (*item)["has_more"] = !more.empty();
  (*item)["count"] = count_text(count, "release");
  (*item)["number"] = count;
  (*item)["first"] = first;
  (*item)["more"] = more;
  (*item)["more_count"] = count_text(more.size(), "older release");
  (*item)["not_shown"] = count > shown ? count_text(count - shown, "release") : "";
  item->erase("releases");
}

std::string to_page(const Listing& listing) {
  nlohmann::json page = nlohmann::json::parse(to_json(listing, -1));  // all of it is UTF-8 there
  const Span span = span_of(listing);
  uint64_t bytes = 0;
  size_t releases = 0;
  std::time_t changed = span.to;
  for (size_t i = 0; i < listing.items.size(); ++i) {
    const ListedItem& item = listing.items[i];
    nlohmann::json& shown = page["items"][i];
    bytes += shown["bytes"].get<uint64_t>();
    releases += item.releases.size();
    changed = std::max(changed, item.since);
    add_texts("since", &shown);
    shown["anchor"] = url_path(shown["name"]);
    shown["pointed"] = shown.value("day", "") + " " + shown.value("minute", "");
    arrange_releases(releases_shown(listing.items.size()), &shown);
    if (!item.releases.empty()) {
      shown["picture"] = picture_of(item, span);
    }
  }
  page["bytes"] = bytes;
  if (changed != 0) {  // something is there
    page["changed"] = utc_time_text(changed);
  }
  add_texts("changed", &page);
  page["any"] = !listing.items.empty();
  page["item_count"] = count_text(listing.items.size(), "item");
  page["release_count"] = count_text(releases, "release");
  return fill_template(kPageText, page);
}

}  // namespace runenv
