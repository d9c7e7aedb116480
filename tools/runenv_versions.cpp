// runenv-versions: writes and prints version info documents.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/buffer.h"
#include "core/failure.h"
#include "core/owner.h"
#include "fs/path.h"
#include "schema/version_info_bin.h"
#include "tools/command_line.h"
#include "tools/document.h"
#include "tools/failure.h"
#include "tools/replacement.h"

namespace runenv {

static constexpr char kUsage[] =
    "usage: runenv-versions compose [-o FILE] PLATFORM_VERSION [NAME=VERSION ...]\n"
    "       runenv-versions show FILE\n"
    "\n"
    "compose  write a version info document that names the platform version and a\n"
    "         version for each system type\n"
    "show     print the platform version of a document, then one NAME=VERSION line\n"
    "         for each system type in order of name\n"
    "\n"
    "  -o, --output FILE  write the document to FILE instead of standard output; an\n"
    "                     existing FILE is replaced when the document is complete\n"
    "  --help             print this text\n"
    "  --version          print the version of this program\n"
    "  --                 end of options: words that follow may begin with \"-\"\n";

// Adds the system type in the word NAME=VERSION. The version may contain "=".
static void add_system_type(const Document& document, const char* word) {
  const char* const equals = std::strchr(word, '=');
  if (equals == nullptr) {
    throw_usage("system type '" + std::string(word) + "' is not of the form NAME=VERSION");
  }
  const std::string name(word, equals);
  if (name.empty()) {
    throw_usage("system type '" + std::string(word) + "' has no name");
  }
  auto* entry = image___version_info___root_t___system_types___iwrite_create_entry(
      document.allocator.get(), document.root, name.c_str());
  if (entry == nullptr) {
    throw_failure("system type '" + name + "' is given twice");
  }
  image___version_info___root___system_types_t___version___iwrite_set(document.allocator.get(),
                                                                      entry, equals + 1);
}

// Follows symbolic links. The last target need not exist.
static fs::path_t behind_links(const char* path) {
  static constexpr int kMostLinks = 40;  // as the kernel
  fs::path_t result = path;
  char target[PATH_MAX];
  for (int i = 0; i < kMostLinks; ++i) {
    const ssize_t length = readlink(result.cstring(), target, sizeof target - 1);
    if (length < 0) {
      break;
    }
    target[length] = '\0';
    result = result.dir_name().join(target);
  }
  return result;
}

// Returns whether to write to `path` directly instead of replacing it. This is so for a device, a
// pipe, and an open file without a name, which /dev/stdout may be. Also returns true if stat fails,
// so that opening the file reports the error. `target` is `path` with its links followed.
static bool is_written_in_place(const char* path, const fs::path_t& target) {
  struct stat status, named;
  if (stat(path, &status) != 0) {
    return errno != ENOENT;
  }
  return !S_ISREG(status.st_mode) || lstat(target.cstring(), &named) != 0 ||
         named.st_ino != status.st_ino || named.st_dev != status.st_dev;
}

static void write_in_place(const Buffer& bytes, const char* path) {
  owner<FILE, std::fclose> file(std::fopen(path, "wb"));
  if (file == nullptr || std::fwrite(bytes.array, 1, bytes.size, file.get()) != bytes.size ||
      std::fclose(file.release()) != 0) {
    throw_errno_of(path);
  }
}

// Writes to standard output if `path` is null. If it is a link, creates or replaces the link's
// target.
static void write_document(const Buffer& bytes, const char* path) {
  if (path == nullptr) {
    std::fwrite(bytes.array, 1, bytes.size, stdout);
    finish_standard_output();
    return;
  }
  const fs::path_t target = behind_links(path);
  if (is_written_in_place(path, target)) {
    write_in_place(bytes, path);
  } else {
    Replacement file(target);
    file.write(bytes.array, bytes.size);
    file.commit(true);
  }
}

static void compose(int argc, char** argv) {
  const char* output = nullptr;
  const std::vector<const char*> words =
      parse_words(argc, argv, 2,
                  {{.name = "-o", .value = &output, .needs = "a file"},
                   {.name = "--output", .value = &output, .needs = "a file"}});
  if (words.empty()) {
    throw_usage("compose needs a platform version");
  }
  const Document document;
  image___version_info___root_t___platform_version___iwrite_set(document.allocator.get(),
                                                                document.root, words[0]);
  for (size_t i = 1; i < words.size(); ++i) {
    add_system_type(document, words[i]);
  }
  Buffer bytes(0);
  if (image___version_info___write_bin_f(document.root, &bytes) != 0) {
    throw_failure(document.root->error);
  }
  write_document(bytes, output);
}

// Prints the text, which may contain NULs, and a line end.
static void print_line(const char* text, size_t length) {
  std::fwrite(text, 1, length, stdout);
  std::putchar('\n');
}

static void show(int argc, char** argv) {
  const std::vector<const char*> words = parse_words(argc, argv, 2, {});
  if (words.size() != 1) {
    throw_usage("show needs one file");
  }
  const Document document;
  read_document(words[0], document);
  print_line(document.root->platform_version, document.root->platform_version_len);
  image___version_info___root___system_types_t___iterator_t iterator;
  for (const auto* entry = image___version_info___root___system_types_t___cit_init(
           document.root->system_types, &iterator);
       entry != nullptr;
       entry = image___version_info___root___system_types_t___cit_next(&iterator)) {
    std::printf("%s=", entry->key);
    print_line(entry->version, entry->version_len);
  }
  finish_standard_output();
}

static void run_command(int argc, char** argv) {
  if (argc < 2) {
    throw_usage("a command is needed, compose or show");
  }
  const std::string command = argv[1];
  exit_on_help(command);
  if (command == "compose") {
    compose(argc, argv);
  } else if (command == "show") {
    show(argc, argv);
  } else {
    throw_usage("unknown command '" + command + "'");
  }
}

}  // namespace runenv

int main(int argc, char** argv) {
  return runenv::run_program(
      {.name = "runenv-versions", .usage = runenv::kUsage, .body = runenv::run_command}, argc,
      argv);
}
