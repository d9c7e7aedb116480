// runenv-served: lists, checks and prunes the tree that a distribution server serves, and writes an
// index of it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/failure.h"
#include "fs/path.h"
#include "schema/layout.h"
#include "tools/command_line.h"
#include "tools/published_name.h"
#include "tools/replacement.h"
#include "tools/served_check.h"
#include "tools/served_index.h"
#include "tools/served_prune.h"
#include "tools/served_tree.h"
#include "tools/size_text.h"
#include "tools/table.h"
#include "tools/time_text.h"

namespace runenv {

static constexpr char kUsage[] =
    "usage: runenv-served TREE list [--json]\n"
    "       runenv-served TREE check [--quick]\n"
    "       runenv-served TREE prune --keep N [--older-than DAYS] [--grace DAYS]\n"
    "                     [--dry-run]\n"
    "       runenv-served TREE index\n"
    "\n"
    "Manages TREE, the directory that the distribution server serves. list prints\n"
    "the releases and which of them is the latest. check prints a line for each\n"
    "fault that it finds. prune removes old releases, but never the latest. index\n"
    "writes index.html and index.json into TREE.\n"
    "\n"
    "  --json             print one JSON object\n"
    "  --quick            do not read the whole archives\n"
    "  --keep N           keep the latest release of each item and the N newest\n"
    "                     others\n"
    "  --older-than DAYS  keep releases that were published in the last DAYS;\n"
    "                     default 0\n"
    "  --grace DAYS       keep releases that were changed in the last DAYS, and all\n"
    "                     releases of an item whose pointer was moved in that time,\n"
    "                     because clients may be about to download them; default 1;\n"
    "                     fractions are allowed\n"
    "  --dry-run          print what would be removed, but remove nothing\n"
    "  --help             print this text\n"
    "  --version          print the version of this program\n"
    "  --                 end of options: words that follow may begin with \"-\"\n"
    "\n"
    "The exit status is 0 on success, 1 if check finds a fault or if something could\n"
    "not be read or removed, and 2 if the command could not be carried out.\n";

namespace {

struct Arguments {
  const char* tree = nullptr;
  std::string command;
  bool json = false;
  bool quick = false;
  Pruning pruning;
};

}  // namespace

static TableRow row_of(const ListedItem& item, const ListedRelease& release) {
  std::string platforms;
  for (const ListedArchive& archive : release.archives) {
    platforms += (platforms.empty() ? "" : " ") + printable(archive.platform);
  }
  const bool is_latest = release.name == item.latest;
  return {{printable(item.name), printable(release.name), is_latest ? Layout::kLatest : "",
           local_time_text(release.published), size_text(release.bytes), platforms},
          is_latest ? "32" : nullptr};
}

static void print_text(const Listing& listing) {
  uint64_t bytes = 0;
  std::vector<TableRow> rows{{{"ITEM", "RELEASE", "POINTER", "PUBLISHED", "SIZE", "PLATFORMS"}}};
  for (const ListedItem& item : listing.items) {
    for (const ListedRelease& release : item.releases) {
      rows.push_back(row_of(item, release));
    }
    bytes += item.bytes;
  }
  print_table(rows, 2);
  for (const ListedItem& item : listing.items) {
    if (!item.problem.empty()) {
      std::printf("%s: %s %s\n", printable(item.name).c_str(), Layout::kLatest,
                  printable(item.problem).c_str());
    }
  }
  std::printf("%s, %s\n", counts_text(listing).c_str(), size_text(bytes).c_str());
}

// Prints the findings that may hide releases. Returns whether there are none.
static bool is_whole(const Listing& listing) {
  bool whole = true;
  for (const Finding& finding : listing.findings) {
    if (finding.hides) {
      std::fprintf(stderr, "%s: %s: %s\n", program_name(), printable(finding.path).c_str(),
                   printable(finding.problem).c_str());
      whole = false;
    }
  }
  return whole;
}

static bool list(const Arguments& arguments) {
  const Listing listing = ServedTree(arguments.tree).list();
  if (arguments.json) {
    std::fputs(to_json(listing, 2).c_str(), stdout);
  } else {
    print_text(listing);
  }
  return is_whole(listing);
}

static bool check(const Arguments& arguments) {
  const ServedTree tree(arguments.tree);
  const Listing listing = tree.list();
  size_t findings = 0;
  check_tree(tree, listing, arguments.quick, [&](const Finding& finding) {
    ++findings;
    std::printf("%s: %s\n", printable(finding.path).c_str(), printable(finding.problem).c_str());
    std::fflush(stdout);
  });
  std::printf("%s; findings: %zu\n", counts_text(listing).c_str(), findings);
  return findings == 0;
}

static bool prune(const Arguments& arguments) {
  return prune_tree(ServedTree(arguments.tree), arguments.pruning);
}

static void write_file(const fs::path_t& path, const std::string& content) {
  Replacement file(path);
  file.write(content.data(), content.size());
  file.commit(true, kServedMode);
}

static bool index(const Arguments& arguments) {
  // The lock covers listing and writing, so that an older listing never replaces a newer index.
  const unique_fd root = open_directory(arguments.tree);
  lock_directory(root.get());
  const Listing listing = ServedTree(arguments.tree).list();
  if (!is_whole(listing)) {
    throw_failure("the index was not written, because it would be incomplete");
  }
  const std::string data = to_json(listing, -1), page = to_page(listing);
  write_file(fs::path_t(arguments.tree).join(kIndexData), data);
  write_file(fs::path_t(arguments.tree).join(kIndexPage), page);
  return true;
}

// Returns the number of days, which may have a fraction.
static double parse_days(const char* text, const char* option) {
  char* end = nullptr;
  const double days = std::strtod(text, &end);
  if (text[std::strspn(text, "0123456789.")] != '\0' || end == text || *end != '\0') {
    throw_usage(std::string("option '") + option + "' needs a number of days, not '" + text + "'");
  }
  return days;
}

static void check_options(const Arguments& arguments, bool prunes) {
  const std::string& command = arguments.command;
  if (command != "list" && command != "check" && command != "prune" && command != "index") {
    throw_usage("unknown command '" + command + "'");
  }
  if ((arguments.json && command != "list") || (arguments.quick && command != "check") ||
      (prunes && command != "prune")) {
    throw_usage("'" + command + "' does not accept this option");
  }
}

static Arguments parse_arguments(int argc, char** argv) {
  Arguments result;
  Pruning& pruning = result.pruning;
  const char *keep = nullptr, *older_than = nullptr, *grace = nullptr;
  const std::vector<const char*> words =
      parse_words(argc, argv, 1,
                  {{.name = "--json", .flag = &result.json},
                   {.name = "--quick", .flag = &result.quick},
                   {.name = "--keep", .value = &keep, .needs = "a number"},
                   {.name = "--older-than", .value = &older_than, .needs = "a number of days"},
                   {.name = "--grace", .value = &grace, .needs = "a number of days"},
                   {.name = "--dry-run", .flag = &pruning.dry_run}});
  if (words.size() != 2) {
    throw_usage("a tree and a command are needed: list, check, prune or index");
  }
  result.tree = words[0];
  result.command = words[1];
  check_options(result,
                keep != nullptr || older_than != nullptr || grace != nullptr || pruning.dry_run);
  if (result.command == "prune" && keep == nullptr) {
    throw_usage("prune needs --keep, the number of releases to keep beside the latest");
  }
  pruning.keep = keep != nullptr ? parse_number(keep, "--keep") : pruning.keep;
  pruning.older_than =
      older_than != nullptr ? parse_days(older_than, "--older-than") : pruning.older_than;
  pruning.grace = grace != nullptr ? parse_days(grace, "--grace") : pruning.grace;
  return result;
}

static void serve(int argc, char** argv) {
  const Arguments arguments = parse_arguments(argc, argv);
  const bool well = arguments.command == "list"    ? list(arguments)
                    : arguments.command == "check" ? check(arguments)
                    : arguments.command == "prune" ? prune(arguments)
                                                   : index(arguments);
  finish_standard_output();
  if (!well) {
    std::exit(1);
  }
}

}  // namespace runenv

int main(int argc, char** argv) {
  return runenv::run_program({.name = "runenv-served",
                              .usage = runenv::kUsage,
                              .body = runenv::serve,
                              .failure_status = 2},
                             argc, argv);
}
