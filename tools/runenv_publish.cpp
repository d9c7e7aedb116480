// runenv-publish: puts releases into the directory tree that a distribution server serves.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
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
#include "tools/size_text.h"

namespace runenv {

static constexpr char kUsage[] =
    "usage: runenv-publish TREE platform VERSION RELEASE --from SOURCE [OPTION ...]\n"
    "       runenv-publish TREE system-type NAME VERSION RELEASE --from SOURCE\n"
    "                      [OPTION ...]\n"
    "       runenv-publish TREE platform VERSION RELEASE --latest-only\n"
    "       runenv-publish TREE system-type NAME VERSION RELEASE --latest-only\n"
    "       runenv-publish TREE ITEM ... RELEASE --sign KEY [--platform NAME]\n"
    "\n"
    "Puts a release of one item into TREE, the directory that the distribution\n"
    "server serves. First it stores the archive, then it moves the pointer \"latest\"\n"
    "to the release. Readers never find an incomplete archive or pointer.\n"
    "\n"
    "  --from SOURCE     a directory to pack, or a .tar.gz archive to check and copy\n"
    "  --list            also pack a list of the files, for runenv-status --verify\n"
    "  --platform NAME   the platform of the archive; default linux-x64\n"
    "  --keep-latest     publish the archive, but do not move the pointer\n"
    "  --latest-only     only move the pointer, to a release that is already\n"
    "                    published\n"
    "  --replace         replace an existing archive of the release for the platform\n"
    "  --sign KEY        run minisign to sign the archive with this secret key, for\n"
    "                    runenv-verify; without --from, sign the published archive\n"
    "  --unsigned        move the pointer even if the new release has an unsigned\n"
    "                    archive while the current release is signed\n"
    "  --as-is           publish content that looks like a mistake: files that\n"
    "                    others cannot read, directories that their owner cannot\n"
    "                    write, links that lead out of the release, set-user-ID\n"
    "                    files, a single directory around everything\n"
    "  --compress WORDS  compress with this program and its options instead of gzip,\n"
    "                    such as \"pigz -n\"; its output must be in gzip's format\n"
    "  --drop-platforms  move the pointer even if the new release has no archive for\n"
    "                    a platform for which the current release has one\n"
    "  --quiet           print nothing on success\n"
    "  --help            print this text\n"
    "  --version         print the version of this program\n"
    "  --                end of options: words that follow may begin with \"-\"\n";

namespace {

struct Arguments {
  Making making;
  const char* platform = nullptr;
  const char* key = nullptr;
  bool keep_latest = false;
  bool latest_only = false;
  bool replace = false;
  bool drop_platforms = false;
  bool is_unsigned = false;
  bool quiet = false;
  const char* tree = nullptr;
  std::vector<std::string> item;  // the item's directory in the tree, by its components
  std::string release;

  bool signs_published() const { return key != nullptr && making.source == nullptr; }
  bool moves_pointer() const { return !keep_latest && !signs_published(); }
};

}  // namespace

// Stores the words TREE, the kind of item, its names, and RELEASE.
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
    throw_failure("a release cannot be called latest: the pointer has this name");
  }
}

static void check_options(const Arguments& arguments) {
  const bool has_source = arguments.making.source != nullptr;
  const bool signs = arguments.key != nullptr;
  if (!arguments.latest_only && !has_source && !signs) {
    throw_usage("--from is needed, or --latest-only");
  }
  if (arguments.latest_only && (has_source || signs || arguments.platform != nullptr ||
                                arguments.keep_latest || arguments.replace)) {
    throw_usage("--latest-only allows only --drop-platforms, --unsigned and --quiet");
  }
  if (arguments.making.list && !has_source) {
    throw_usage("--list needs --from");
  }
  if (arguments.keep_latest && arguments.drop_platforms) {
    throw_usage("--drop-platforms has no effect with --keep-latest");
  }
  if (signs && arguments.is_unsigned) {
    throw_usage("--sign and --unsigned exclude each other");
  }
  if (arguments.signs_published() &&
      (arguments.keep_latest || arguments.replace || arguments.drop_platforms)) {
    throw_usage("--sign without --from allows only --platform and --quiet");
  }
  if (!has_source && (arguments.making.as_is || arguments.making.compress != nullptr)) {
    throw_usage("--as-is and --compress have no effect without --from");
  }
}

static Arguments parse_arguments(int argc, char** argv) {
  Arguments arguments;
  const std::vector<Option> options = {
      {.name = "--from", .value = &arguments.making.source, .needs = "a directory or an archive"},
      {.name = "--platform", .value = &arguments.platform, .needs = "the name of a platform"},
      {.name = "--sign", .value = &arguments.key, .needs = "the file of a secret key"},
      {.name = "--compress", .value = &arguments.making.compress, .needs = "a program"},
      {.name = "--as-is", .flag = &arguments.making.as_is},
      {.name = "--quiet", .flag = &arguments.quiet},
      {.name = "--list", .flag = &arguments.making.list},
      {.name = "--keep-latest", .flag = &arguments.keep_latest},
      {.name = "--latest-only", .flag = &arguments.latest_only},
      {.name = "--replace", .flag = &arguments.replace},
      {.name = "--drop-platforms", .flag = &arguments.drop_platforms},
      {.name = "--unsigned", .flag = &arguments.is_unsigned}};
  take_operands(parse_words(argc, argv, 1, options), &arguments);
  check_options(arguments);
  if (arguments.platform == nullptr) {
    arguments.platform = Layout::kDefaultPlatform;
  }
  check_name("platform", arguments.platform, Layout::kArchiveExtension);
  return arguments;
}

// Returns whether the directory at `path` is the directory `other` or is inside it.
static bool is_within(const char* path, const char* other) {
  const std::string inner = std::string(fs::path_t(path).real_path().cstring()) + "/";
  return inner.starts_with(std::string(fs::path_t(other).real_path().cstring()) + "/");
}

static void check_source(const Making& making, const char* tree) {
  const char* const path = making.source;
  struct stat status;
  if (stat(path, &status) != 0) {
    throw_errno_of(path);
  }
  if (!S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode)) {
    throw_failure_of(path, "is neither a directory nor a regular file");
  }
  if (S_ISDIR(status.st_mode) && is_within(tree, path)) {
    throw_failure_of(path, "contains the tree, which would become part of the release");
  }
  if (making.compress != nullptr && !S_ISDIR(status.st_mode)) {
    throw_usage("--compress needs a directory, but '" + std::string(path) + "' is an archive");
  }
  if (making.list && !S_ISDIR(status.st_mode)) {
    throw_failure_of(path, "is an archive, but --list needs a directory");
  }
}

[[noreturn]] static void throw_published(const ServedItem& item, const Arguments& arguments) {
  throw_failure_of(
      item.archive_path(arguments.release, arguments.platform).cstring(),
      "is published already; --replace replaces it, --latest-only moves the pointer to it");
}

// Each platform for which the current release has an archive needs one in the new release.
static void check_platforms(const ServedItem& item, const std::string& release,
                            const std::set<std::string>& available) {
  const std::optional<std::string> current = item.latest();
  if (!current) {
    return;
  }
  const std::set<std::string> needed = item.platforms(*current);
  if (needed.empty() && *current != release) {
    throw_failure("'" + printable(*current) +
                  "', the latest so far, has no archive any more, so nobody knows which platforms "
                  "it had; if release '" +
                  release + "' has them all, give --drop-platforms");
  }
  for (const std::string& platform : needed) {
    if (!available.contains(platform)) {
      throw_failure("release '" + release + "' lacks an archive for platform '" +
                    printable(platform) + "', which '" + printable(*current) +
                    "', the latest so far, has; move the pointer when all are there "
                    "(--keep-latest until then), or give --drop-platforms");
    }
  }
}

// Returns whether the release's archive for the platform will be signed when the pointer moves.
static bool will_be_signed(const ServedItem& item, const Arguments& arguments,
                           const std::string& platform) {
  if (arguments.making.source != nullptr && platform == arguments.platform) {
    return arguments.key != nullptr || is_signed_archive(fs::path_t(arguments.making.source));
  }
  return is_signed_archive(item.archive_path(arguments.release, platform));
}

static bool has_signed_archive(const ServedItem& item, const std::string& release) {
  const std::set<std::string> platforms = item.platforms(release);
  return std::any_of(platforms.begin(), platforms.end(), [&](const std::string& platform) {
    return is_signed_archive(item.archive_path(release, platform));
  });
}

// Returns whether the item is published with signatures, so that machines may verify them. Checks
// the current release, or all releases if that one has no archives.
static bool uses_signatures(const ServedItem& item, const std::string& current) {
  if (!item.platforms(current).empty()) {
    return has_signed_archive(item, current);
  }
  const std::set<std::string> releases = item.releases();
  return std::any_of(releases.begin(), releases.end(),
                     [&](const std::string& release) { return has_signed_archive(item, release); });
}

// Throws Error if the item uses signatures and an archive for a platform in `available` is not
// signed: machines that verify signatures could not install it.
static void check_signatures(const ServedItem& item, const Arguments& arguments,
                             const std::set<std::string>& available) {
  const std::optional<std::string> current = item.latest();
  if (!current || !uses_signatures(item, *current)) {
    return;
  }
  for (const std::string& platform : available) {
    if (!will_be_signed(item, arguments, platform)) {
      throw_failure("release '" + arguments.release + "' is not signed for platform '" +
                    printable(platform) + "', while '" + printable(*current) +
                    "', the latest so far, is signed; sign it (--sign), or give --unsigned");
    }
  }
}

// Throws Error if the pointer may not name the release, which has, or will have, archives for the
// platforms `available`.
static void check_pointer(const ServedItem& item, const Arguments& arguments,
                          const std::set<std::string>& available) {
  if (!arguments.drop_platforms) {
    check_platforms(item, arguments.release, available);
  }
  if (!arguments.is_unsigned) {
    check_signatures(item, arguments, available);
  }
}

// Throws Error if the request cannot be carried out, before any work is done.
static void check_request(const ServedItem& item, const Arguments& arguments) {
  std::set<std::string> available = item.platforms(arguments.release);
  if (arguments.signs_published()) {
    if (!available.contains(arguments.platform)) {
      throw_failure("release '" + arguments.release + "' has no archive for platform '" +
                    arguments.platform + "'");
    }
  } else if (arguments.latest_only) {
    if (available.empty()) {
      throw_failure("release '" + arguments.release + "' has no archive");
    }
  } else {
    check_source(arguments.making, arguments.tree);
    const bool is_new = available.insert(arguments.platform).second;
    if (!is_new && !arguments.replace) {
      throw_published(item, arguments);
    }
  }
  if (arguments.moves_pointer()) {
    check_pointer(item, arguments, available);
  } else if (arguments.making.source != nullptr && !arguments.is_unsigned &&
             item.latest() == arguments.release) {
    check_signatures(item, arguments, {arguments.platform});
  }
}

// Packing takes time, so the checks are repeated here. `before` is what the pointer named at the
// first check.
static void move_pointer(const ServedItem& item, const Arguments& arguments,
                         const std::optional<std::string>& before) {
  const std::string& release = arguments.release;
  const unique_fd lock = item.lock();
  const std::optional<std::string> now = item.latest();
  if (now && now != before && *now != release) {
    throw_failure("the pointer was moved to '" + printable(*now) + "' meanwhile");
  }
  Arguments published = arguments;
  published.making.source = nullptr;  // check the archives that are in place now
  check_pointer(item, published, item.platforms(release));
  item.point_at(release);
}

static void put_archive(const ServedItem& item, const Arguments& arguments) {
  const fs::path_t published = item.archive_path(arguments.release, arguments.platform);
  const bool again = arguments.signs_published();
  const Making making =
      again ? Making{.source = published.cstring(), .as_is = true} : arguments.making;
  if (!item.put_archive(arguments.release, arguments.platform, making, arguments.key,
                        again || arguments.replace)) {
    throw_published(item, arguments);
  }
}

// Prints a line such as "2/runenv/platform/5/r2/linux-x64.tar.gz (12 MB, signed); latest is r2, was
// r1".
static void tell_outcome(const ServedItem& item, const Arguments& arguments,
                         const std::optional<std::string>& before) {
  std::string line;
  for (const std::string& name : arguments.item) {
    line += (line.empty() ? "" : "/") + name;
  }
  if (!arguments.latest_only) {
    const fs::path_t archive = item.archive_path(arguments.release, arguments.platform);
    struct stat status;
    if (stat(archive.cstring(), &status) != 0) {
      throw_errno_of(archive.cstring());
    }
    line += "/" + arguments.release + "/" + arguments.platform + Layout::kArchiveExtension + " (" +
            size_text(static_cast<uint64_t>(status.st_size)) +
            (is_signed_archive(archive) ? ", signed" : "") + ")";
  }
  const std::optional<std::string> now = item.latest();
  line += now ? "; latest is " + printable(*now) : "; no latest yet";
  if (before && now != before) {
    line += ", was " + printable(*before);
  }
  std::printf("%s\n", line.c_str());
  finish_standard_output();
}

static void publish(int argc, char** argv) {
  const Arguments arguments = parse_arguments(argc, argv);
  const ServedItem item(arguments.tree, arguments.item);
  const std::optional<std::string> before = item.latest();
  check_request(item, arguments);
  if (!arguments.latest_only) {
    put_archive(item, arguments);
  }
  try {
    if (arguments.moves_pointer()) {
      move_pointer(item, arguments, before);
    }
  } catch (const Error& error) {
    if (arguments.latest_only) {
      throw;
    }
    throw_failure(std::string(error.message) +
                  "; the archive is in place: --latest-only moves the pointer");
  }
  try {
    if (!arguments.quiet) {
      tell_outcome(item, arguments, before);
    }
  } catch (const Error& error) {
    throw_failure(std::string(error.message) + "; all else is done");
  }
}

}  // namespace runenv

int main(int argc, char** argv) {
  return runenv::run_program(
      {.name = "runenv-publish", .usage = runenv::kUsage, .body = runenv::publish}, argc, argv);
}
