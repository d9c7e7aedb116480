// runenv-publish: puts releases into the directory tree that a distribution server serves.
#include <sys/stat.h>

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
#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/served_item.h"

namespace runenv {

static constexpr char kUsage[] =
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

namespace {

struct Arguments {
  const char* source = nullptr;
  const char* platform = nullptr;
  bool keep_latest = false;
  bool latest_only = false;
  bool replace = false;
  bool drop_platforms = false;

  const char* tree = nullptr;
  std::vector<std::string> item;  // the item's directory in the tree, by its components
  std::string release;
};

}  // namespace

// TREE, the kind of item, its names, RELEASE.
static void take_operands(const std::vector<const char*>& words, Arguments* arguments) {
  if (words.empty()) {
    throw_usage("a tree is needed, the directory that the server serves");
  }
  const std::string kind = words.size() == 1 ? "" : words[1];
  if (kind.empty()) {
    throw_usage("the kind of item is needed, platform or system-type");
  }
  const bool is_platform = kind == "platform";
  if (!is_platform && kind != "system-type") {
    throw_usage("unknown kind of item '" + kind + "'");
  }
  if (words.size() != (is_platform ? 4 : 5)) {
    throw_usage(is_platform ? "platform takes a version and a release"
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
  check_name("version", arguments->item.back());
  check_name("release", arguments->release);
  if (arguments->release == Layout::kLatest) {
    throw_failure("release 'latest' would stand where the pointer does");
  }
}

static void check_options(const Arguments& arguments) {
  if (!arguments.latest_only && arguments.source == nullptr) {
    throw_usage("--from is needed, or --latest-only");
  }
  if (arguments.latest_only && (arguments.source != nullptr || arguments.platform != nullptr ||
                                arguments.keep_latest || arguments.replace)) {
    throw_usage("--latest-only goes with --drop-platforms alone");
  }
  if (arguments.keep_latest && arguments.drop_platforms) {
    throw_usage("--drop-platforms says nothing with --keep-latest");
  }
}

static Arguments parse_arguments(int argc, char** argv) {
  Arguments arguments;
  const std::vector<Option> options = {
      {.name = "--from", .value = &arguments.source, .needs = "a directory or an archive"},
      {.name = "--platform", .value = &arguments.platform, .needs = "the name of a platform"},
      {.name = "--keep-latest", .flag = &arguments.keep_latest},
      {.name = "--latest-only", .flag = &arguments.latest_only},
      {.name = "--replace", .flag = &arguments.replace},
      {.name = "--drop-platforms", .flag = &arguments.drop_platforms}};
  take_operands(parse_words(argc, argv, 1, options), &arguments);
  check_options(arguments);
  if (arguments.platform == nullptr) {
    arguments.platform = Layout::kDefaultPlatform;
  }
  check_name("platform", arguments.platform, Layout::kArchiveExtension);
  return arguments;
}

static void check_source(const char* path) {
  struct stat status;
  if (stat(path, &status) != 0) {
    throw_errno_of(path);
  }
  if (!S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode)) {
    throw_failure_of(path, "is neither a directory nor a regular file");
  }
}

[[noreturn]] static void throw_published(const ServedItem& item, const Arguments& arguments) {
  throw_failure_of(
      item.archive_path(arguments.release, arguments.platform).cstring(),
      "is published already; --replace replaces it, --latest-only moves the pointer to it");
}

// Whoever finds an archive by the pointer now is to find one by the new pointer too.
static void check_platforms(const ServedItem& item, const std::string& release,
                            const std::set<std::string>& available) {
  const std::optional<std::string> current = item.latest();
  if (!current) {
    return;
  }
  for (const std::string& platform : item.platforms(*current)) {
    if (!available.contains(platform)) {
      throw_failure("release '" + release + "' lacks an archive for platform '" +
                    printable(platform) + "', which '" + printable(*current) +
                    "', the latest so far, has; move the pointer when all are there "
                    "(--keep-latest until then), or give --drop-platforms");
    }
  }
}

// Refuses at once what cannot be published.
static void check_request(const ServedItem& item, const Arguments& arguments) {
  std::set<std::string> available = item.platforms(arguments.release);
  if (arguments.latest_only) {
    if (available.empty()) {
      throw_failure("release '" + arguments.release + "' has no archive");
    }
  } else {
    check_source(arguments.source);
    const bool is_new = available.insert(arguments.platform).second;
    if (!is_new && !arguments.replace) {
      throw_published(item, arguments);
    }
  }
  if (!arguments.keep_latest && !arguments.drop_platforms) {
    check_platforms(item, arguments.release, available);
  }
}

// Packing takes its time: what was checked before is checked again. `before` is what the pointer
// named then.
static void move_pointer(const ServedItem& item, const Arguments& arguments,
                         const std::optional<std::string>& before) {
  const std::string& release = arguments.release;
  const unique_fd lock = item.lock();
  const std::optional<std::string> now = item.latest();
  if (now && now != before && *now != release) {
    throw_failure("the pointer was moved to '" + printable(*now) + "' meanwhile");
  }
  if (!arguments.drop_platforms) {
    check_platforms(item, release, item.platforms(release));
  }
  item.point_at(release);
}

static void publish(int argc, char** argv) {
  const Arguments arguments = parse_arguments(argc, argv);
  const ServedItem item(arguments.tree, arguments.item);
  const std::optional<std::string> before = item.latest();
  check_request(item, arguments);
  if (!arguments.latest_only && !item.put_archive(arguments.release, arguments.platform,
                                                  arguments.source, arguments.replace)) {
    throw_published(item, arguments);
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
    throw_failure(std::string(error.message) +
                  "; the archive is in place: --latest-only moves the pointer");
  }
}

}  // namespace runenv

int main(int argc, char** argv) {
  return runenv::run_program(
      {.name = "runenv-publish", .usage = runenv::kUsage, .body = runenv::publish}, argc, argv);
}
