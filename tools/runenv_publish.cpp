// runenv-publish: puts releases into the directory tree that a distribution server serves.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/error.h"
#include "core/failure.h"
#include "schema/layout.h"
#include "tools/command_line.h"
#include "tools/published_name.h"
#include "tools/served_item.h"

namespace Layout = runenv::Layout;

const char kProgram[] = "runenv-publish";

const char kUsage[] =
    "usage: runenv-publish TREE platform VERSION RELEASE --from SOURCE [OPTION ...]\n"
    "       runenv-publish TREE system-type NAME VERSION RELEASE --from SOURCE [OPTION ...]\n"
    "       runenv-publish TREE platform VERSION RELEASE --latest-only\n"
    "       runenv-publish TREE system-type NAME VERSION RELEASE --latest-only\n"
    "\n"
    "Puts a release of one item into TREE, the directory that the distribution server serves: "
    "first\n"
    "its archive, then the \"latest\" pointer that names it. Each appears whole or not at all.\n"
    "\n"
    "  --from SOURCE     a directory, which is packed, or a .tar.gz archive, which is checked and\n"
    "                    copied\n"
    "  --platform NAME   the platform that the archive is for, linux-x64 unless given\n"
    "  --keep-latest     put the archive only and leave the pointer as it is\n"
    "  --latest-only     move the pointer only, to a release that is there\n"
    "  --replace         replace the archive if the release has one for the platform already\n"
    "  --drop-platforms  move the pointer even if the release has no archive for a platform for\n"
    "                    which the release named now has one\n"
    "  --help            print this text\n"
    "  --version         print the version of this program\n"
    "  --                take every word that follows as it is, even if it begins with \"-\"\n";

struct Arguments {
  const char* source = nullptr;
  const char* platform = nullptr;
  bool keep_latest = false;
  bool latest_only = false;
  bool replace = false;
  bool drop_platforms = false;

  std::string tree;
  std::vector<std::string> item;  // the item's directory in the tree, by its components
  std::string release;
};

// TREE, the kind of item, its names, RELEASE.
static void take_operands(const std::vector<const char*>& words, Arguments* arguments) {
  const std::string kind = words.size() < 2 ? "" : words[1];
  const bool is_platform = kind == "platform";
  if (words.empty()) {
    fail_usage("a tree is needed, the directory that the server serves");
  } else if (!is_platform && kind != "system-type") {
    fail_usage(kind.empty() ? "the kind of item is needed, platform or system-type"
                            : "unknown kind of item '" + kind + "'");
  } else if (words.size() != (is_platform ? 4 : 5)) {
    fail_usage(is_platform ? "platform takes a version and a release"
                           : "system-type takes a name, a version and a release");
  }
  arguments->tree = words[0];
  arguments->item = {Layout::kTreeRoot, Layout::kEnvironment,
                     is_platform ? Layout::kPlatform : Layout::kSystemTypes};
  arguments->item.insert(arguments->item.end(), words.begin() + 2, words.end() - 1);
  arguments->release = words.back();
  if (!is_platform) {
    check_name("system type", words[2]);
  }
  check_name("version", *(words.end() - 2));
  check_name("release", arguments->release);
  if (arguments->release == Layout::kLatest) {
    runenv::throw_failure("release 'latest' would stand where the pointer does");
  }
}

static Arguments parse_arguments(int argc, char** argv) {
  Arguments arguments;
  const std::vector<const char*> words =
      parse_words(argc, argv, 1,
                  {{"--from", &arguments.source, nullptr, "a directory or an archive"},
                   {"--platform", &arguments.platform, nullptr, "the name of a platform"},
                   {"--keep-latest", nullptr, &arguments.keep_latest},
                   {"--latest-only", nullptr, &arguments.latest_only},
                   {"--replace", nullptr, &arguments.replace},
                   {"--drop-platforms", nullptr, &arguments.drop_platforms}});
  take_operands(words, &arguments);
  if (!arguments.latest_only && arguments.source == nullptr) {
    fail_usage("--from is needed, or --latest-only");
  }
  if (arguments.latest_only && (arguments.source != nullptr || arguments.platform != nullptr ||
                                arguments.keep_latest || arguments.replace)) {
    fail_usage("--latest-only goes with --drop-platforms alone");
  }
  if (arguments.keep_latest && arguments.drop_platforms) {
    fail_usage("--drop-platforms says nothing with --keep-latest");
  }
  if (arguments.platform == nullptr) {
    arguments.platform = Layout::kDefaultPlatform;
  }
  check_name("platform", arguments.platform, Layout::kArchiveExtension);
  return arguments;
}

static void check_source(const char* path) {
  struct stat status;
  if (stat(path, &status) != 0) {
    fail_on(path, std::strerror(errno));
  }
  if (!S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode)) {
    fail_on(path, "is neither a directory nor a regular file");
  }
}

// Whoever finds an archive by the pointer now is to find one by the new pointer too.
static void check_platforms(const ServedItem& item, const std::string& release,
                            const std::set<std::string>& available) {
  const std::string current = item.latest().value_or(release);
  const std::set<std::string> served = item.platforms(current);
  const auto missing = std::find_if(served.begin(), served.end(), [&](const std::string& platform) {
    return !available.contains(platform);
  });
  if (missing != served.end()) {
    runenv::throw_failure("release '" + release + "' lacks an archive for platform '" +
                          printable(*missing) + "', which '" + printable(current) +
                          "', the latest so far, has; move the pointer when all are there "
                          "(--keep-latest until then), or give --drop-platforms");
  }
}

// Packing takes its time: what was seen before is looked at again.
static void move_pointer(const ServedItem& item, const Arguments& arguments,
                         const std::optional<std::string>& before) {
  const std::string& release = arguments.release;
  const runenv::unique_fd lock = item.lock();
  const std::optional<std::string> now = item.latest();
  if (now != before && now.value_or(release) != release) {
    runenv::throw_failure("the pointer was moved to '" + printable(*now) + "' meanwhile");
  }
  if (!arguments.drop_platforms) {
    check_platforms(item, release, item.platforms(release));
  }
  item.point_at(release);
}

[[noreturn]] static void refuse_published(const ServedItem& item, const Arguments& arguments) {
  fail_on(item.archive_path(arguments.release, arguments.platform),
          "is published already; --replace replaces it, --latest-only moves the pointer to it");
}

// Refuses at once what cannot be published.
static void check(const ServedItem& item, const Arguments& arguments) {
  std::set<std::string> available = item.platforms(arguments.release);
  if (arguments.latest_only) {
    if (available.empty()) {
      runenv::throw_failure("release '" + arguments.release + "' has no archive");
    }
  } else {
    check_source(arguments.source);
    if (!available.insert(arguments.platform).second && !arguments.replace) {
      refuse_published(item, arguments);
    }
  }
  if (!arguments.keep_latest && !arguments.drop_platforms) {
    check_platforms(item, arguments.release, available);
  }
}

static void publish(int argc, char** argv) {
  const Arguments arguments = parse_arguments(argc, argv);
  const ServedItem item(arguments.tree, arguments.item);
  const std::optional<std::string> before = item.latest();
  check(item, arguments);
  if (!arguments.latest_only && !item.put_archive(arguments.release, arguments.platform,
                                                  arguments.source, arguments.replace)) {
    refuse_published(item, arguments);
  }
  if (arguments.keep_latest) {
    return;
  }
  try {
    move_pointer(item, arguments, before);
  } catch (const Error& error) {
    if (arguments.latest_only) {
      throw;
    }
    runenv::throw_failure(std::string(error.message) +
                          "; the archive is in place: --latest-only moves the pointer");
  }
}

int main(int argc, char** argv) {
  return run_program(publish, argc, argv);
}
