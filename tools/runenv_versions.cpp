// runenv-versions: writes and prints version info documents.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/buffer.h"
#include "core/error.h"
#include "fs/file_interface.h"
#include "schema/version_info.h"
#include "schema/version_info_bin.h"

static constexpr char kUsage[] =
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

struct Arguments {
  std::vector<const char*> operands;
  const char* output = nullptr;  // null: standard output
};

[[noreturn]] static void fail_usage(const std::string& message) {
  std::fprintf(stderr, "runenv-versions: %s\nTry 'runenv-versions --help'.\n", message.c_str());
  std::exit(1);
}

[[noreturn]] static void fail_on(const char* what, const char* message) {
  throw_failure(std::string(what) + ": " + message);
}

// Standard output reports a failure to write at the latest when it is flushed.
static void finish_standard_output() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    fail_on("standard output", std::strerror(errno));
  }
}

[[noreturn]] static void print_and_exit(const char* text) {
  std::fputs(text, stdout);
  finish_standard_output();
  std::exit(0);
}

// The words after the command; answers --help itself.
static Arguments parse_arguments(int argc, char** argv, bool with_output) {
  static constexpr std::string_view kOutput = "--output=";
  Arguments arguments;
  bool options = true;
  for (int i = 2; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (!options || !word.starts_with('-')) {
      arguments.operands.push_back(argv[i]);
    } else if (word == "--") {
      options = false;
    } else if (word == "--help") {
      print_and_exit(kUsage);
    } else if (with_output && (word == "-o" || word == "--output")) {
      if (++i == argc) {
        fail_usage("option '" + std::string(word) + "' needs a file");
      }
      arguments.output = argv[i];
    } else if (with_output && word.starts_with(kOutput)) {
      arguments.output = argv[i] + kOutput.size();
    } else {
      fail_usage("unknown option '" + std::string(word) + "'");
    }
  }
  if (arguments.output != nullptr && *arguments.output == '\0') {
    fail_usage("the name of the output file is empty");
  }
  return arguments;
}

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
    throw_failure("system type '" + name + "' is given twice");
  }
  image___version_info___root___system_types_t___version___iwrite_set(document.allocator.get(),
                                                                      entry, equals + 1);
}

// Writes and closes `file`; throws Error naming `path`, and closes it too, when that fails.
static void write_and_close(FILE* file, const char* path, const Buffer& bytes) {
  const bool written = std::fwrite(bytes.array, 1, bytes.size, file) == bytes.size;
  const int write_error = errno;
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed) {
    fail_on(path, std::strerror(written ? errno : write_error));
  }
}

// A new file beside the one it is to replace; gone again unless it did.
class Replacement {
 public:
  explicit Replacement(const char* path) : target(path), temporary(target + ".XXXXXX") {
    const int descriptor = mkstemp(temporary.data());
    if (descriptor < 0) {
      fail_on(path, std::strerror(errno));
    }
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(descriptor, 0666 & ~mask);  // as for any new file; mkstemp lets in the owner alone
    file = fdopen(descriptor, "wb");
    if (file == nullptr) {
      const int error = errno;
      close(descriptor);
      unlink(temporary.c_str());
      fail_on(path, std::strerror(error));
    }
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement() {
    if (!done) {
      unlink(temporary.c_str());
    }
  }

  void commit(const Buffer& bytes) {
    write_and_close(file, target.c_str(), bytes);
    if (std::rename(temporary.c_str(), target.c_str()) != 0) {
      fail_on(target.c_str(), std::strerror(errno));
    }
    done = true;
  }

 private:
  std::string target;
  std::string temporary;
  FILE* file = nullptr;
  bool done = false;
};

// A device or a pipe takes the bytes itself: there is nothing to replace.
static bool is_special_file(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

static void write_document(const Buffer& bytes, const char* path) {
  if (path == nullptr) {
    std::fwrite(bytes.array, 1, bytes.size, stdout);
    finish_standard_output();
  } else if (is_special_file(path)) {
    FILE* const file = std::fopen(path, "wb");
    if (file == nullptr) {
      fail_on(path, std::strerror(errno));
    }
    write_and_close(file, path, bytes);
  } else {
    Replacement(path).commit(bytes);
  }
}

static void compose(const Arguments& arguments) {
  if (arguments.operands.empty()) {
    fail_usage("compose needs a platform version");
  }
  Document document;
  image___version_info___root_t___platform_version___iwrite_set(
      document.allocator.get(), document.root, arguments.operands[0]);
  for (size_t i = 1; i < arguments.operands.size(); ++i) {
    add_system_type(document, arguments.operands[i]);
  }
  Buffer bytes(0);
  if (image___version_info___write_bin_f(document.root, &bytes) != 0) {
    throw_failure(document.root->error);
  }
  write_document(bytes, arguments.output);
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

static void show(const Arguments& arguments) {
  if (arguments.operands.size() != 1) {
    fail_usage("show needs one file");
  }
  const char* const path = arguments.operands[0];
  const auto stream = open_document(path);
  const Document document;
  if (image___version_info___parse_bin_f(document.allocator.get(), document.root, stream.get()) !=
      0) {
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

int main(int argc, char** argv) {
  const std::string_view command = argc < 2 ? "" : argv[1];
  try {
    if (command == "--help") {
      print_and_exit(kUsage);
    } else if (command == "--version") {
      print_and_exit("runenv-versions " RUNENV_VERSION "\n");
    } else if (command == "compose") {
      compose(parse_arguments(argc, argv, true));
    } else if (command == "show") {
      show(parse_arguments(argc, argv, false));
    } else if (argc < 2) {
      fail_usage("a command is needed, compose or show");
    } else {
      fail_usage("unknown command '" + std::string(command) + "'");
    }
  } catch (const Error& error) {
    std::fprintf(stderr, "runenv-versions: %s\n", error.message);
    return 1;
  }
  return 0;
}
