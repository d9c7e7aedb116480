// runenv-status: reports which releases are installed, which are broken, and which are out of date.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/error.h"
#include "core/failure.h"
#include "core/owner.h"
#include "fs/iterator.h"
#include "fs/path.h"
#include "schema/layout.h"
#include "tools/command_line.h"
#include "tools/document.h"
#include "tools/environment.h"
#include "tools/failure.h"
#include "tools/file_check.h"
#include "tools/published_name.h"
#include "tools/served_pointers.h"
#include "tools/size_text.h"
#include "tools/table.h"
#include "tools/time_text.h"
#include "tools/tree.h"

namespace runenv {

static constexpr char kUsage[] =
    "usage: runenv-status [OPTION ...] DOCUMENT\n"
    "\n"
    "Reports which releases of the items in DOCUMENT are installed, and which are\n"
    "broken. Also lists other releases, items that DOCUMENT does not name, and\n"
    "leftovers of interrupted runs.\n"
    "\n"
    "  --check           compare with the releases that the distribution server\n"
    "                    names\n"
    "  --verify          compare the installed files with the list published with\n"
    "                    the release\n"
    "  --json            print one JSON object\n"
    "  --quiet           print nothing, only set the exit status\n"
    "  --directory DIR   the directory that contains \"runenv\"; default: working\n"
    "                    directory\n"
    "  --temp-cache DIR  the bootstrapper's directory for downloads; default .update\n"
    "  --help            print this text\n"
    "  --version         print the version of this program and the address of the\n"
    "                    server\n"
    "  --                end of options: words that follow may begin with \"-\"\n"
    "\n"
    "The exit status is 0 if everything is up to date, 1 if an item is not installed\n"
    "or behind, 2 if an item is broken, and 3 if the state could not be determined.\n";

static constexpr char kAboutVersion[] = "server: " RUNENV_BASE_URL "\n";

namespace {

struct Arguments {
  bool check = false;
  bool verify = false;
  bool json = false;
  bool quiet = false;
  const char* directory = nullptr;
  const char* temp_cache = nullptr;
  const char* document = nullptr;
};

enum class State { kInstalled, kBehind, kMissing, kBroken, kUnknown };

struct Item {
  std::string name;  // such as "platform/5"
  State state = State::kMissing;
  std::string problem;                // why the item is broken or its state is unknown
  std::string release;                // the release that the local pointer names; empty: none
  std::optional<std::string> served;  // the release that the server names, if it was fetched
  std::time_t since = 0;              // when the local pointer was written
  uint64_t bytes = 0;                 // the release's size on disk
  std::optional<std::vector<Difference>> differences;  // with --verify, if the release has a list
};

// A release that no pointer names, an item that the document does not name, or a leftover.
struct Other {
  std::string path;
  uint64_t bytes = 0;
};

struct Report {
  bool measures = true;  // whether to measure sizes; --quiet does not need them
  std::vector<Item> items;
  std::vector<Other> releases;
  std::vector<Other> unlisted;
  std::vector<Other> leftovers;

  uint64_t size_of(const std::string& path) const { return measures ? size_on_disk(path) : 0; }
};

}  // namespace

static constexpr const char* kStateNames[] = {"installed", "behind", "not installed", "broken",
                                              "unknown"};
static constexpr const char* kColours[] = {"32", "33", "33", "31", "35"};

static const char* name_of(State state) {
  return kStateNames[static_cast<size_t>(state)];
}

// Returns the path of an item, or of an entry of its directory.
static std::string below_environment(const std::string& item, const std::string& entry = "") {
  return fs::path_t(Layout::kEnvironment).join(item.c_str()).join(entry.c_str()).cstring();
}

static void add_leftovers(const LocalItem& local, const std::string& name, Report* report) {
  for (const std::string& left : local.leftovers()) {
    report->leftovers.push_back(
        {below_environment(name, left), report->size_of(local.path_of(left))});
  }
}

// Returns the item's state on the disk. Adds its other releases and leftovers to the report.
static Item look_at(int root, const std::string& name, Report* report) {
  Item item;
  try {
    const LocalItem local(root, name);
    if (!local.exists()) {
      return item;
    }
    const std::optional<std::string> current = local.current(&item.problem);
    item.since = local.switched();
    if (current) {
      item.state = State::kInstalled;
      item.release = *current;
      item.bytes = report->size_of(local.path_of(*current));
    } else if (!item.problem.empty()) {
      item.state = State::kBroken;
    }
    for (const Release& release : local.releases()) {
      if (release.name != item.release) {
        report->releases.push_back(
            {below_environment(name, release.name), report->size_of(local.path_of(release.name))});
      }
    }
    add_leftovers(local, name, report);
  } catch (const OddItem& error) {
    item.state = State::kBroken;
    item.problem = error.message;
  } catch (const Error& error) {
    item.state = State::kUnknown;
    item.problem = error.message;
  }
  return item;
}

static void look_at_temp_cache(const fs::path_t& cache, Report* report) {
  for (fs::iterator_t entry(cache, true); entry.has_item(); entry.move_next()) {
    const std::string path = entry.get_path().cstring();
    report->leftovers.push_back({path, report->size_of(path)});
  }
}

// Adds the items that the document does not name, and leftovers beside items, to the report.
static void look_besides(int root, const std::vector<std::string>& listed, Report* report) {
  const std::set<std::string> wanted = wanted_directories(listed);
  for (const std::string& name : items_present(root)) {
    if (!wanted.contains(name)) {
      attempt([&] {
        const LocalItem item(root, name);
        report->unlisted.push_back({below_environment(name), report->size_of(item.path_of("."))});
      });
    }
  }
  for (const std::string& name : parents_of_items(root)) {
    attempt([&] { add_leftovers(LocalItem(root, name), name, report); });
  }
}

static Report look_around(const Arguments& arguments, const std::vector<std::string>& listed) {
  Report report;
  report.measures = !arguments.quiet;
  const unique_fd root =
      has_environment(arguments.directory) ? open_environment(arguments.directory) : unique_fd();
  for (const std::string& name : listed) {
    report.items.push_back(root.get() < 0 ? Item{} : look_at(root.get(), name, &report));
    report.items.back().name = name;
  }
  if (arguments.quiet) {
    return report;
  }
  if (root.get() >= 0) {
    look_besides(root.get(), listed, &report);
  }
  look_at_temp_cache(fs::path_t(arguments.directory).join(arguments.temp_cache), &report);
  return report;
}

static void ask_server(const std::vector<std::string>& listed, Report* report) {
  const std::vector<std::optional<std::string>> served = fetch_pointers(RUNENV_BASE_URL, listed);
  for (size_t i = 0; i < served.size(); ++i) {
    Item& item = report->items[i];
    item.served = served[i];
    if (item.state == State::kInstalled && served[i] != item.release) {
      item.state = served[i] ? State::kBehind : State::kUnknown;
    }
  }
}

static std::vector<Difference> differences_of(int root, const Item& item) {
  const LocalItem local(root, item.name);
  const unique_fd release(
      open_below(local.descriptor(), item.release.c_str(), O_RDONLY | O_DIRECTORY));
  if (release.get() < 0) {
    throw_errno_of("its directory");
  }
  const std::optional<std::vector<Difference>> differences = check_files(release.get());
  if (!differences) {
    throw_failure("has no list of its files");
  }
  return *differences;
}

static void verify(int root, Item* item) {
  try {
    item->differences = differences_of(root, *item);
    if (item->differences->empty()) {
      return;
    }
    if (std::any_of(item->differences->begin(), item->differences->end(),
                    [](const Difference& difference) { return difference.is_known(); })) {
      item->state = State::kBroken;
      item->problem = "its files differ from the published ones";
      return;
    }
    item->problem = "files could not be read";
  } catch (const Error& error) {
    item->problem = error.message;
  }
  item->state = item->state == State::kInstalled ? State::kUnknown : item->state;
}

static void verify_installed(const Arguments& arguments, Report* report) {
  unique_fd root;
  for (Item& item : report->items) {
    if (item.release.empty()) {
      continue;
    }
    if (root.get() < 0) {
      root = open_environment(arguments.directory);
    }
    verify(root.get(), &item);
  }
}

static bool any(const Report& report, State state) {
  return std::any_of(report.items.begin(), report.items.end(),
                     [&](const Item& item) { return item.state == state; });
}

static int exit_status(const Report& report) {
  return any(report, State::kBroken)                                   ? 2
         : any(report, State::kMissing) || any(report, State::kBehind) ? 1
         : any(report, State::kUnknown)                                ? 3
                                                                       : 0;
}

static nlohmann::ordered_json to_json(const std::vector<Other>& others) {
  auto result = nlohmann::ordered_json::array();
  for (const Other& other : others) {
    result.push_back({{"path", other.path}, {"bytes", other.bytes}});
  }
  return result;
}

static std::string path_of(const Item& item, const Difference& difference) {
  const std::string release = below_environment(item.name, item.release);
  return difference.path == "." ? release : release + "/" + difference.path;
}

static nlohmann::ordered_json to_json(const Item& item) {
  nlohmann::ordered_json result{{"name", item.name}, {"state", name_of(item.state)}};
  if (!item.problem.empty()) {
    result["problem"] = item.problem;
  }
  if (!item.release.empty()) {
    result["release"] = item.release;
    result["since"] = utc_time_text(item.since);
    result["bytes"] = item.bytes;
  }
  if (item.served) {
    result["served"] = *item.served;
  }
  if (item.differences) {
    result["differences"] = nlohmann::ordered_json::array();
    for (const Difference& difference : *item.differences) {
      result["differences"].push_back({{"kind", difference.kind},
                                       {"path", path_of(item, difference)},
                                       {"detail", difference.detail}});
    }
  }
  return result;
}

static void print_json(const Arguments& arguments, const Report& report) {
  nlohmann::ordered_json result{{"document", arguments.document},
                                {"server", RUNENV_BASE_URL},
                                {"status", exit_status(report)},
                                {"items", nlohmann::ordered_json::array()}};
  for (const Item& item : report.items) {
    result["items"].push_back(to_json(item));
  }
  result["other_releases"] = to_json(report.releases);
  result["unlisted_items"] = to_json(report.unlisted);
  result["leftovers"] = to_json(report.leftovers);
  // Names can be any bytes. Those that are not UTF-8 are replaced. Other characters than ASCII are
  // written as \uXXXX, because terminals obey some of them.
  const std::string text =
      result.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
  std::printf("%s\n", text.c_str());
}

static TableRow row_of(const Item& item) {
  const bool installed = !item.release.empty();
  std::string release = printable(item.release);
  if (item.served && *item.served != item.release) {
    release += (installed ? " -> " : "-> ") + printable(*item.served);
  }
  return {{printable(item.name), name_of(item.state),
           installed || item.problem.empty() ? release : printable(item.problem),
           installed ? local_time_text(item.since) : "", installed ? size_text(item.bytes) : ""},
          kColours[static_cast<size_t>(item.state)]};
}

static void print_others(const char* what, const std::vector<Other>& others) {
  for (const Other& other : others) {
    std::printf("%s: %s (%s)\n", what, printable(other.path).c_str(),
                size_text(other.bytes).c_str());
  }
}

static void print_differences(const Item& item) {
  if (!item.release.empty() && !item.problem.empty() && !item.differences) {
    std::printf("%s: %s\n", printable(below_environment(item.name, item.release)).c_str(),
                printable(item.problem).c_str());
  }
  for (const Difference& difference : item.differences.value_or(std::vector<Difference>())) {
    const std::string detail = difference.detail.empty() ? "" : " (" + difference.detail + ")";
    std::printf("%s: %s\n", difference.kind, printable(path_of(item, difference) + detail).c_str());
  }
}

static void print_text(const Report& report) {
  std::vector<TableRow> rows{{{"ITEM", "STATE", "RELEASE", "SINCE", "SIZE"}}};
  for (const Item& item : report.items) {
    rows.push_back(row_of(item));
  }
  print_table(rows, 1);
  std::for_each(report.items.begin(), report.items.end(), print_differences);
  print_others("other release", report.releases);
  print_others("item not in the document", report.unlisted);
  print_others("leftover", report.leftovers);
  std::printf("%s", count_text(report.items.size(), "item").c_str());
  for (size_t i = 0; i < std::size(kStateNames); ++i) {
    const auto count =
        std::count_if(report.items.begin(), report.items.end(),
                      [&](const Item& item) { return item.state == static_cast<State>(i); });
    if (count != 0) {
      std::printf(", %td %s", count, kStateNames[i]);
    }
  }
  std::printf("\n");
}

static Arguments parse_arguments(int argc, char** argv) {
  Arguments result;
  const std::vector<const char*> words =
      parse_words(argc, argv, 1,
                  {{.name = "--check", .flag = &result.check},
                   {.name = "--verify", .flag = &result.verify},
                   {.name = "--json", .flag = &result.json},
                   {.name = "--quiet", .flag = &result.quiet},
                   {.name = "--directory", .value = &result.directory, .needs = "a directory"},
                   {.name = "--temp-cache", .value = &result.temp_cache, .needs = "a directory"}});
  if (words.size() != 1) {
    throw_usage("one document is needed");
  }
  if (result.json && result.quiet) {
    throw_usage("--json and --quiet exclude each other");
  }
  result.document = words[0];
  result.directory = result.directory != nullptr ? result.directory : "";
  result.temp_cache = result.temp_cache != nullptr ? result.temp_cache : ".update";
  return result;
}

static void tell_status(int argc, char** argv) {
  const Arguments arguments = parse_arguments(argc, argv);
  const Document document;
  read_document(arguments.document, document);
  const std::vector<std::string> listed = item_directories(document);
  Report report = look_around(arguments, listed);
  if (arguments.check) {
    ask_server(listed, &report);
  }
  if (arguments.verify) {
    verify_installed(arguments, &report);
  }
  if (arguments.json) {
    print_json(arguments, report);
  } else if (!arguments.quiet) {
    print_text(report);
  }
  finish_standard_output();
  std::exit(exit_status(report));
}

}  // namespace runenv

int main(int argc, char** argv) {
  return runenv::run_program({.name = "runenv-status",
                              .usage = runenv::kUsage,
                              .body = runenv::tell_status,
                              .about_version = runenv::kAboutVersion,
                              .failure_status = 3},
                             argc, argv);
}
