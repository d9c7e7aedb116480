// runenv-versions: writes and prints version info documents.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/buffer.h"
#include "core/failure.h"
#include "fs/file_interface.h"
#include "fs/path.h"
#include "schema/version_info.h"
#include "schema/version_info_bin.h"
#include "stream/istream.h"
#include "tools/command_line.h"
#include "tools/replacement.h"

const char kProgram[] = "runenv-versions";

const char kUsage[] =
    "usage: runenv-versions compose [-o FILE] PLATFORM_VERSION [NAME=VERSION ...]\n"
    "       runenv-versions show FILE\n"
    "\n"
    "compose  write a version info document that names the platform version and a version for\n"
    "         each system type\n"
    "show     print the platform version of a document, then one NAME=VERSION line for each\n"
    "         system type in order of name\n"
    "\n"
    "  -o, --output FILE  write the document to FILE, which is replaced only once the document is\n"
    "                     complete, instead of standard output\n"
    "  --help             print this text\n"
    "  --version          print the version of this program\n"
    "  --                 take every word that follows as it is, even if it begins with \"-\"\n";

struct AllocatorDeleter {
  void operator()(dympage_t* allocator) const {
    image___version_info___destroy_allocator_f(allocator);
  }
};

struct Document {
  std::unique_ptr<dympage_t, AllocatorDeleter> allocator{
      image___version_info___create_allocator_f()};
  image___version_info___root_t* root = image___version_info___root_t___allocate_f(allocator.get());
};

static void add_system_type(Document& document, const char* word) {
  const char* const equals = std::strchr(word, '=');
  if (equals == nullptr) {
    fail_usage("system type '" + std::string(word) + "' is not of the form NAME=VERSION");
  }
  const std::string name(word, equals);
  if (name.empty()) {
    fail_usage("system type '" + std::string(word) + "' has no name");
  }
  auto* entry = image___version_info___root_t___system_types___iwrite_create_entry(
      document.allocator.get(), document.root, name.c_str());
  if (entry == nullptr) {
    runenv::throw_failure("system type '" + name + "' is given twice");
  }
  image___version_info___root___system_types_t___version___iwrite_set(document.allocator.get(),
                                                                      entry, equals + 1);
}

// Where a name leads that may be a link: the link stays, what it points at is made or replaced.
static std::string behind_links(const char* path) {
  static constexpr int kMostLinks = 40;  // as the system follows
  std::string result = path;
  char target[PATH_MAX];
  for (int i = 0; i < kMostLinks; ++i) {
    const ssize_t length = readlink(result.c_str(), target, sizeof target - 1);
    if (length < 0) {
      break;
    }
    target[length] = '\0';
    result = fs::path_t(result.c_str()).dir_name().join(target).cstring();
  }
  return result;
}

// A device or a pipe takes the bytes itself, and so does a file that is open and has no name any
// more, as /dev/stdout may lead to: there is nothing to replace. The same goes for what cannot be
// written at all. `target` is what stands behind the links.
static bool is_written_in_place(const char* path, const std::string& target) {
  struct stat status, named;
  if (stat(path, &status) != 0) {
    return errno != ENOENT;
  }
  return !S_ISREG(status.st_mode) || lstat(target.c_str(), &named) != 0 ||
         named.st_ino != status.st_ino || named.st_dev != status.st_dev;
}

static void write_in_place(const Buffer& bytes, const char* path) {
  FILE* const file = std::fopen(path, "wb");
  if (file == nullptr) {
    fail_on(path, std::strerror(errno));
  }
  const bool written = std::fwrite(bytes.array, 1, bytes.size, file) == bytes.size;
  const int write_error = errno;
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed) {
    fail_on(path, std::strerror(written ? errno : write_error));
  }
}

static void write_document(const Buffer& bytes, const char* path) {
  if (path == nullptr) {
    std::fwrite(bytes.array, 1, bytes.size, stdout);
    finish_standard_output();
    return;
  }
  const std::string target = behind_links(path);
  if (is_written_in_place(path, target)) {
    write_in_place(bytes, path);
  } else {
    Replacement file(target);
    file.write(bytes.array, bytes.size);
    file.commit(true);
  }
}

static void compose(int argc, char** argv) {
  const char* output = nullptr;  // null: standard output
  const std::vector<const char*> words =
      parse_words(argc, argv, 2,
                  {{"-o", &output, nullptr, "a file"}, {"--output", &output, nullptr, "a file"}});
  if (words.empty()) {
    fail_usage("compose needs a platform version");
  }
  Document document;
  image___version_info___root_t___platform_version___iwrite_set(document.allocator.get(),
                                                                document.root, words[0]);
  for (size_t i = 1; i < words.size(); ++i) {
    add_system_type(document, words[i]);
  }
  Buffer bytes(0);
  if (image___version_info___write_bin_f(document.root, &bytes) != 0) {
    runenv::throw_failure(document.root->error);
  }
  write_document(bytes, output);
}

struct StreamDeleter {
  void operator()(istream* stream) const { istream_destroy(stream); }
};

static std::unique_ptr<istream, StreamDeleter> open_document(const char* path) {
  bucket_t name = fs_init(path);
  std::unique_ptr<istream, StreamDeleter> stream(fs_open_read(&name));
  const int error = errno;
  bucket_release(&name);
  if (stream == nullptr) {
    fail_on(path, std::strerror(error));
  }
  return stream;
}

static void show(int argc, char** argv) {
  const std::vector<const char*> words = parse_words(argc, argv, 2, {});
  if (words.size() != 1) {
    fail_usage("show needs one file");
  }
  const char* const path = words[0];
  const auto stream = open_document(path);
  const Document document;
  const int result =
      image___version_info___parse_bin_f(document.allocator.get(), document.root, stream.get());
  // To the parser a failure to read is the end of the file.
  if (std::ferror(reinterpret_cast<istream_file*>(stream.get())->file) != 0) {
    fail_on(path, std::strerror(errno));
  }
  if (result != 0) {
    fail_on(path, document.root->error);
  }
  std::fwrite(document.root->platform_version, 1, document.root->platform_version_len, stdout);
  std::putchar('\n');
  image___version_info___root___system_types_t___iterator_t iterator;
  for (const auto* entry = image___version_info___root___system_types_t___cit_init(
           document.root->system_types, &iterator);
       entry != nullptr;
       entry = image___version_info___root___system_types_t___cit_next(&iterator)) {
    std::printf("%s=", entry->key);
    std::fwrite(entry->version, 1, entry->version_len, stdout);
    std::putchar('\n');
  }
  finish_standard_output();
}

static void run_command(int argc, char** argv) {
  const std::string_view command = argc < 2 ? "" : argv[1];
  answer(command);
  if (command == "compose") {
    compose(argc, argv);
  } else if (command == "show") {
    show(argc, argv);
  } else if (argc < 2) {
    fail_usage("a command is needed, compose or show");
  } else {
    fail_usage("unknown command '" + std::string(command) + "'");
  }
}

int main(int argc, char** argv) {
  return run_program(run_command, argc, argv);
}
