#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <tuple>
#include <vector>

#include "core/error.h"
#include "core/owner.h"
#include "fs/file_interface.h"
#include "fs/iterator.h"
#include "fs/path.h"
#include "tests/files.h"

using FsTest = ScratchTest;
using fs::path_t;
using File = runenv::owner<FILE, std::fclose>;

// Returns whether child processes do not inherit the file.
static bool is_private(FILE* file) {
  return fcntl(fileno(file), F_GETFD) == FD_CLOEXEC;
}

// A bucket that frees itself at the end of a test or of a call.
struct Bucket : runenv::OwnedBucket {
  Bucket(const char* text) : OwnedBucket(fs_init(text)) {}
  explicit Bucket(const bucket_t& other) : OwnedBucket(other) {}
  operator bucket_t*() { return this; }
  std::string text() { return bucket_cstring(this); }
};

TEST_F(FsTest, FailuresNameThePathAndTheReason) {
  write_file("f", "");
  files::create_directory("d");
  const std::string long_name = "x/" + std::string(300, 'n');
  std::string chain;
  while (chain.size() < 5000) chain += std::string(250, 'c') + '/';
  const std::string refused = chain.substr(0, chain.find('/', 4096));  // too long for the kernel
  const auto read = [](path_t path) { File(path.open_read()); };
  const auto make_all = [](path_t path) { path.create_directory(true); };
  const std::tuple<std::string, void (*)(path_t), std::string> kRows[] = {
      {"no", [](path_t path) { path.real_path(); },
       "Unable to get realpath to 'no': No such file or directory"},
      {"d", read, "Unable to open 'd' for reading: it is a directory"},
      {"no", read, "Unable to open 'no' for reading: No such file or directory"},
      {"d", [](path_t path) { File(path.open_write(false)); },
       "Unable to open 'd' for writing: Is a directory"},
      {"no/f", [](path_t path) { File(path.open_append(false)); },
       "Unable to open 'no/f' for appending: No such file or directory"},
      {"f/x/y", [](path_t path) { File(path.open_write(true)); },
       "Unable to create directory 'f/x': component 'f' of path is not a directory"},
      {"f", make_all, "Unable to create directory 'f': already exists byt is not a directory"},
      {long_name, make_all, "Unable to create directory '" + long_name + "': File name too long"},
      {chain, make_all, "Unable to create directory '" + refused + "': File name too long"},
      {"", make_all, "empty string is not a path"},
      {"no", [](path_t path) { fs::iterator_t(path, true).get_path(); },
       "Directory iterator is past end"},
  };
  for (const auto& [path, action, message] : kRows) {
    try {
      action(path);
      ADD_FAILURE() << message;
    } catch (const Error& error) {
      EXPECT_EQ(error.type, Error::Type::Failure);
      EXPECT_EQ(error.message, message);
    }
  }
  // The directories before the long name, and before the end of the chain, were created.
  EXPECT_TRUE(path_t("x").is_directory() && path_t(refused).dir_name().is_directory());
  EXPECT_THROW(path_t(nullptr), std::logic_error);
}

TEST_F(FsTest, DirectoriesAreMadeQueriedAndRemoved) {
  umask(0);
  path_t("x/y/z").create_directory(true).create_directory(true);
  EXPECT_TRUE(path_t("x/y/z").is_directory());
  EXPECT_EQ(files::status("x/y").permissions(), files::perms{0777});
  path_t("/").create_directory(true);
  const path_t file("p/q/f"), link("x/link"), kept("kept/f");
  for (FILE* const opened :
       {file.open_write(true), file.open_append(false), kept.open_append(true), file.open_read()}) {
    EXPECT_TRUE(is_private(opened));
    std::fputs("text", opened);
    std::fclose(opened);
  }
  EXPECT_EQ(read_file("p/q/f"), "texttext");
  EXPECT_TRUE(file.is_regular_file() && file.exists() && !file.is_directory());
  file.create_directory(false);  // accepts a file in this mode
  EXPECT_EQ(file.set_utime(5, 7), 0);
  EXPECT_EQ(file.get_mtime(), 7);
  EXPECT_EQ(path_t("no").get_mtime(), 0);
  EXPECT_EQ(path_t("no").set_utime(1, 1), -1);
  EXPECT_TRUE(link.symlink("nowhere") && !link.symlink("nowhere"));
  EXPECT_TRUE(!link.exists() && link.exists(true));
  EXPECT_EQ(path_t("x/./y/..").real_path().cstring(), directory + "/x");
  EXPECT_TRUE(path_t("/").is_root() && !path_t("//").is_root());
  EXPECT_TRUE(path_t("x").remove() && !file.remove());  // true: it failed
  path_t("x/outside").symlink("../kept");
  EXPECT_TRUE(path_t("x").remove_directory() && !path_t("x").remove_directory());
  EXPECT_TRUE(!path_t("x").exists() && kept.exists());
}

TEST_F(FsTest, ListingsLeaveOutWhatIsHidden) {
  for (const char* name : {"d/x", "d/.profile", "d/..."}) write_file(name, "");
  using Names = std::multiset<std::string>;
  for (const bool include_hidden : {false, true}) {
    Names names;
    fs::iterator_t it("d/", include_hidden);
    for (; it.has_item(); it.move_next()) {
      EXPECT_EQ(it.get_path().cstring(), std::string("d/") + it.get_name());
      names.insert(it.get_name());
    }
    it.move_next();  // past the end
    EXPECT_THROW(it.get_name(), Error);
    EXPECT_EQ(names, include_hidden ? Names({"...", ".profile", "x"}) : Names({"x"}));
  }
  fs::iterator_t("no", true).move_next();
  fs_dir_t listing;
  EXPECT_EQ(fs_dir_open(Bucket("no"), &listing), -1);
  EXPECT_EQ(fs_dir_read(&listing), 0);
  Bucket path("d");
  ASSERT_EQ(fs_dir_open(path, &listing), 0);
  EXPECT_EQ(fs_dir_read(&listing), 1);
  EXPECT_STREQ(fs_iter_name(&listing), "x");
  EXPECT_EQ(Bucket(fs_iter_path(&listing)).text(), "d/x");
  EXPECT_EQ(fs_dir_read(&listing) + fs_dir_read(&listing), 0);  // past the end
}

TEST_F(FsTest, CFunctionsReturnPlainIntegers) {
  write_file("f", "12345");
  write_file("small", "fits the buffer");
  write_file("many", std::string(5000, 'c'));
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  const sockaddr_un address{AF_UNIX, "sock"};
  const runenv::unique_fd fd(socket(AF_UNIX, SOCK_STREAM, 0));
  ASSERT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  std::string hostile = "f";  // deeper than the stack
  while (hostile.size() < 60'000) hostile += "/h";
  rlimit stack;
  getrlimit(RLIMIT_STACK, &stack);
  stack.rlim_cur = 1 << 20;
  setrlimit(RLIMIT_STACK, &stack);
  using Call = std::function<long long(bucket_t*)>;
  const Call set_mode = [](bucket_t* path) { return fs_set_mode(path, 0640); };
  const Call set_mtime = [](bucket_t* path) { return fs_set_mtime(path, 9); };
  const Call rename_to_m = [](bucket_t* path) { return fs_rename(path, Bucket("m")); };
  const auto copy_from = [](const char* source) -> Call {  // returns errno on failure
    return [source](bucket_t* path) {
      const int result = fs_fcopy(path, Bucket(source));
      return result == -1 ? errno : result;
    };
  };
  using Results = std::vector<std::pair<const char*, long long>>;
  const std::pair<Call, Results> kSteps[] = {
      {fs_type, {{"no", 0}, {"fifo", 1}, {"f", 2}, {".", 3}, {"sock", 4}}},
      {fs_exists, {{"no", 0}, {"f", 1}}},
      {fs_realpath, {{"no", -1}}},
      {fs_size, {{"no", 0}, {"f", 5}}},
      {set_mtime, {{"f", 0}}},
      {fs_get_mtime, {{"no", -1}, {"f", 9}}},
      {set_mode, {{"no", -1}, {"fifo", 0}}},
      {fs_mkdir, {{"d", 0}, {"d", -1}}},
      // Accepts a file as the last component.
      {fs_mkdir_recursive, {{"d", 0}, {"f", 0}, {"f/x", -1}, {hostile.c_str(), -1}, {"d/e/g", 0}}},
      {fs_type, {{"d/e/g", 3}}},
      {rename_to_m, {{"f", 0}, {"f", -1}}},
      // fs_touch empties a file. "f" was renamed, so a directory of that name can be created.
      {fs_touch, {{"d", -1}, {"m", 0}}},
      {fs_touch_path, {{"m/x", -1}, {"f/x", 0}}},
      {fs_size, {{"m", 0}}},
      {fs_type, {{"f/x", 2}}},
      {fs_remove, {{"m", 0}, {"m", -1}}},
      // The result is the same whether or not all was removed.
      {fs_remove_recursive, {{"d", -1}, {"no", -1}}},
      {fs_exists, {{"d", 0}}},
      {copy_from("many"), {{"c", 0}, {"e", 0}, {".", EISDIR}, {"/dev/full", ENOSPC}}},
      {copy_from("small"), {{"/dev/full", ENOSPC}}},  // reported only when the file is closed
      {copy_from("."), {{"e", EISDIR}}},
      {fs_size, {{"c", 5000}, {"e", 0}}},
      {copy_from("no"), {{"c", ENOENT}}},
      {fs_size, {{"c", 0}}},
  };
  for (const auto& [call, results] : kSteps) {
    for (const auto& [path, result] : results) EXPECT_EQ(call(Bucket(path)), result) << path;
  }
  EXPECT_EQ(files::status("fifo").permissions(), files::perms{0640});
  Bucket here(".");
  EXPECT_EQ(fs_realpath(here), 0);
  EXPECT_EQ(here.text(), directory);
}

TEST_F(FsTest, CreatingParentsEndsAtAnUnreadableWorkingDirectory) {
  ASSERT_EQ(chmod(".", 0), 0);
  const uid_t user = geteuid();
  ASSERT_EQ(seteuid(user == 0 ? 65534 : user), 0);  // root could read it
  EXPECT_EQ(fs_mkdir_recursive(Bucket("x/y")), -1);
  EXPECT_THROW(path_t("x/y").create_directory(true), Error);
  ASSERT_EQ(seteuid(user), 0);
  ASSERT_EQ(chmod(directory.c_str(), 0700), 0);
}

TEST_F(FsTest, AWriterIsARecordOfFunctions) {
  EXPECT_EQ(fs_open_write(Bucket(".")), nullptr);
  const runenv::malloc_ptr<fs_ostream_t> writer(fs_open_write(Bucket("f")));
  EXPECT_TRUE(is_private(writer->file));
  EXPECT_EQ(writer->write_len(writer.get(), "0123456789", 10), 10U);
  EXPECT_EQ(writer->close(writer.get()), 0);
  EXPECT_EQ(read_file("f"), "0123456789");
}
