#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "core/error.h"
#include "fs/file_interface.h"
#include "fs/iterator.h"
#include "fs/path.h"

// Every test stands in an empty directory of its own.
class FsTest : public testing::Test {
 protected:
  FsTest() {
    std::string name = testing::TempDir() + "/runenv-fs-XXXXXX";
    directory = std::filesystem::canonical(mkdtemp(name.data()));
    std::filesystem::current_path(directory);
  }
  ~FsTest() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory);
  }
  std::string directory;
};

static void write_file(const char* path, const std::string& content) {
  std::ofstream(path) << content;
}

static std::string read_file(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A builder for the length of a test.
struct Bucket : bucket_t {
  explicit Bucket(const char* text = "") : bucket_t(fs_init(text)) {}
  explicit Bucket(bucket_t other) : bucket_t(other) {}
  ~Bucket() { bucket_release(this); }
  std::string text() { return bucket_cstring(this); }
};

TEST_F(FsTest, FailuresSayWhatAndWhy) {
  write_file("f", "");
  std::filesystem::create_directory("d");
  std::filesystem::create_symlink("loop", "loop");
  const std::string long_name(300, 'n');
  const std::string component = std::string(250, 'c') + '/';
  std::string chain;
  while (chain.size() < 5000) {
    chain += component;
  }
  const std::string refused = chain.substr(0, chain.find('/', 4096));  // too long for the system
  const struct {
    std::function<void()> action;
    std::string message;
  } kRows[] = {
      {[] { fs::path_t("no").real_path(); },
       "Unable to get realpath to 'no': No such file or directory"},
      {[] { fs::path_t("d").open_read(); }, "Unable to open 'd' for reading: it is a directory"},
      {[] { fs::path_t("no").open_read(); },
       "Unable to open 'no' for reading: No such file or directory"},
      {[] { fs::path_t("d").open_write(false); }, "Unable to open 'd' for writing: Is a directory"},
      {[] { fs::path_t("no/f").open_append(false); },
       "Unable to open 'no/f' for appending: No such file or directory"},
      {[] { fs::path_t("f/x/y").open_write(true); },
       "Unable to create directory 'f/x': component 'f' of path is not a directory"},
      {[] { fs::path_t("no/d").create_directory(false); },
       "Unable to create directory 'no/d': No such file or directory"},
      {[] { fs::path_t("").create_directory(false); },
       "Unable to create directory '': No such file or directory"},
      {[] { fs::path_t("").create_directory(true); }, "empty string is not a path"},
      {[] { fs::path_t("").is_root(); }, "empty string is not a path"},
      {[] { fs::path_t("f").create_directory(true); },
       "Unable to create directory 'f': already exists byt is not a directory"},
      {[] { fs::path_t("f/b").create_directory(true); },
       "Unable to create directory 'f/b': component 'f' of path is not a directory"},
      {[&] { fs::path_t("x").join(long_name.c_str()).create_directory(true); },
       "Unable to create directory 'x/" + long_name + "': File name too long"},
      {[&] { fs::path_t(chain.c_str()).create_directory(true); },
       "Unable to create directory '" + refused + "': File name too long"},
      {[&] { fs::path_t("f").join(chain.c_str()).create_directory(true); },
       "Unable to create directory 'f/" + chain + "': component 'f' of path is not a directory"},
      {[] { fs::iterator_t("no", true).get_name(); }, "Directory iterator is past end"},
      {[] { fs::iterator_t("f", true).get_path(); }, "Directory iterator is past end"},
  };
  for (const auto& row : kRows) {
    try {
      row.action();
      ADD_FAILURE() << row.message;
    } catch (const Error& error) {
      EXPECT_EQ(error.type, Error::Type::Failure);
      EXPECT_EQ(error.message, row.message);
    }
  }
  // What was made before the long name, or the long chain, failed.
  EXPECT_TRUE(fs::path_t("x").is_directory());
  EXPECT_TRUE(fs::path_t(refused.c_str()).dir_name().is_directory());
}

TEST_F(FsTest, DirectoriesAreMadeQueriedAndRemoved) {
  fs::path_t deep("x/y/z");
  deep.create_directory(true).create_directory(true);
  EXPECT_TRUE(deep.is_directory());
  fs::path_t("/").create_directory(true);
  fs::path_t("/tmp").create_directory(false);
  std::fclose(fs::path_t("p/q/f").open_write(true));
  FILE* const appended = fs::path_t("p/q/f").open_append(false);
  std::fputs("more", appended);
  std::fclose(appended);
  fs::path_t file("p/q/f");
  EXPECT_TRUE(file.is_regular_file() && file.exists() && !file.is_directory());
  file.create_directory(false);  // whatever stands there is fine in this mode
  EXPECT_EQ(file.set_utime(5, 7), 0);
  EXPECT_EQ(file.get_mtime(), 7);
  EXPECT_EQ(fs::path_t("no").get_mtime(), 0);
  EXPECT_EQ(fs::path_t("no").set_utime(1, 1), -1);
  fs::path_t link("x/link");
  EXPECT_TRUE(link.symlink("nowhere"));
  EXPECT_FALSE(link.symlink("nowhere"));
  EXPECT_TRUE(!link.exists() && link.exists(true));
  EXPECT_STREQ(fs::path_t("x/./y/..").real_path().cstring(), (directory + "/x").c_str());
  EXPECT_TRUE(fs::path_t("/").is_root() && !fs::path_t("//").is_root());
  EXPECT_TRUE(fs::path_t("x").remove());  // true: it failed
  EXPECT_FALSE(file.remove());
  std::fclose(fs::path_t("kept/f").open_write(true));
  fs::path_t("x/outside").symlink("../kept");
  EXPECT_TRUE(fs::path_t("x").remove_directory());
  EXPECT_FALSE(fs::path_t("x").remove_directory());
  EXPECT_TRUE(!fs::path_t("x").exists() && fs::path_t("kept/f").exists());
}

TEST_F(FsTest, ListingsLeaveOutWhatIsHidden) {
  for (const char* name : {"d/x", "d/.profile", "d/..."}) {
    std::fclose(fs::path_t(name).open_write(true));
  }
  const auto names = [](bool include_hidden) {
    std::vector<std::string> listed;
    fs::iterator_t it("d/", include_hidden);
    for (; it.has_item(); it.move_next()) {
      listed.push_back(it.get_name());
      EXPECT_EQ(it.get_path().cstring(), std::string("d/") + it.get_name());
    }
    EXPECT_THROW(it.get_name(), Error);
    std::sort(listed.begin(), listed.end());
    return listed;
  };
  EXPECT_EQ(names(true), (std::vector<std::string>{"...", ".profile", "x"}));
  EXPECT_EQ(names(false), (std::vector<std::string>{"x"}));
  fs_dir_t listing;
  Bucket path("d"), missing("no");
  EXPECT_EQ(fs_dir_open(&missing, &listing), -1);
  ASSERT_EQ(fs_dir_open(&path, &listing), 0);
  EXPECT_EQ(fs_dir_read(&listing), 1);
  EXPECT_STREQ(fs_iter_name(&listing), "x");
  EXPECT_EQ(Bucket(fs_iter_path(&listing)).text(), "d/x");
  EXPECT_EQ(fs_dir_read(&listing), 0);
}

TEST_F(FsTest, CFunctionsAnswerPlainIntegers) {
  write_file("f", "12345");
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  const sockaddr_un address{AF_UNIX, "sock"};
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  close(fd);
  const struct {
    const char* path;
    int type;
  } kTypes[] = {{"no", 0}, {"fifo", 1}, {"f", 2}, {".", 3}, {"sock", 4}};
  for (const auto& row : kTypes) {
    Bucket path(row.path);
    EXPECT_EQ(fs_type(&path), row.type) << row.path;
    EXPECT_EQ(fs_exists(&path), row.type != 0);
  }
  Bucket file("f"), missing("no"), directory_path("d"), deep("d/e/g"), below("f/x"), moved("m");
  EXPECT_EQ(fs_size(&file), 5);
  EXPECT_EQ(fs_size(&missing), 0);
  EXPECT_EQ(fs_set_mtime(&file, 9), 0);
  EXPECT_EQ(fs_get_mtime(&file), 9);
  EXPECT_EQ(fs_get_mtime(&missing), -1);
  EXPECT_EQ(fs_set_mode(&file, 0640), 0);
  EXPECT_EQ(fs_set_mode(&missing, 0640), -1);
  EXPECT_EQ(fs_mkdir(&directory_path), 0);
  EXPECT_EQ(fs_mkdir(&directory_path), -1);
  EXPECT_EQ(fs_mkdir_recursive(&directory_path), 0);
  EXPECT_EQ(fs_mkdir_recursive(&file), 0);  // anything that exists will do
  EXPECT_EQ(fs_mkdir_recursive(&below), -1);
  EXPECT_EQ(fs_mkdir_recursive(&deep), 0);
  Bucket hostile("f");
  while (hostile.length < 150'000) {  // deeper than the stack
    bucket_append(&hostile, "/h");
  }
  EXPECT_EQ(fs_mkdir_recursive(&hostile), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(fs_rename(&file, &moved), 0);
  EXPECT_EQ(fs_rename(&file, &moved), -1);
  EXPECT_EQ(fs_touch(&moved), 0);
  EXPECT_EQ(fs_size(&moved), 0);  // emptied
  EXPECT_EQ(fs_touch(&directory_path), -1);
  EXPECT_EQ(fs_touch_path(&below), 0);  // "f" is gone, so its directory can be made
  EXPECT_EQ(fs_remove(&moved), 0);
  EXPECT_EQ(fs_remove(&moved), -1);
  EXPECT_EQ(fs_remove_recursive(&directory_path), -1);  // as ever
  EXPECT_EQ(fs_exists(&directory_path), 0);
  EXPECT_EQ(fs_realpath(&missing), -1);
  EXPECT_EQ(missing.text(), "no");
  Bucket here(".");
  EXPECT_EQ(fs_realpath(&here), 0);
  EXPECT_EQ(here.text(), directory);
}

TEST_F(FsTest, ClimbingEndsWhereTheWorkingDirectoryCannotBeSeen) {
  ASSERT_EQ(chmod(".", 0), 0);
  const uid_t user = geteuid();
  ASSERT_EQ(seteuid(user == 0 ? 65534 : user), 0);  // root would see it all the same
  Bucket path("x/y");
  const int result = fs_mkdir_recursive(&path);
  EXPECT_THROW(fs::path_t("x/y").create_directory(true), Error);
  ASSERT_EQ(seteuid(user), 0);
  ASSERT_EQ(chmod(directory.c_str(), 0700), 0);
  EXPECT_EQ(result, -1);
}

TEST_F(FsTest, OpenedFilesStayOutOfChildProcesses) {
  Bucket path("f");
  fs_ostream_t* const writer = fs_open_write(&path);
  istream* const reader = fs_open_read(&path);
  FILE* const files[] = {writer->file, reinterpret_cast<istream_file*>(reader)->file,
                         fs::path_t("f").open_write(false), fs::path_t("f").open_append(false),
                         fs::path_t("f").open_read()};
  for (FILE* const file : files) {
    EXPECT_EQ(fcntl(fileno(file), F_GETFD), FD_CLOEXEC);
    std::fclose(file);
  }
  std::free(writer);
  std::free(reader);
}

TEST_F(FsTest, CopiesReportWhatDidNotArrive) {
  const std::string content(5000, 'c');
  write_file("f", content);
  write_file("s", "fits the buffer");
  Bucket source("f"), small("s"), copy("copy"), missing("no"), dir("."), full("/dev/full");
  EXPECT_EQ(fs_fcopy(&copy, &source), 0);
  EXPECT_EQ(read_file("copy"), content);
  EXPECT_EQ(fs_fcopy(&copy, &missing), -1);
  EXPECT_EQ(read_file("copy"), "");  // the destination is left empty
  EXPECT_EQ(fs_fcopy(&copy, &dir), -1);
  EXPECT_EQ(fs_fcopy(&full, &source), -1);
  EXPECT_EQ(fs_fcopy(&full, &small), -1);
  EXPECT_EQ(fs_fcopy(&dir, &source), -1);
}

TEST_F(FsTest, CStreamsSeekAndClose) {
  write_file("f", "0123456789");
  Bucket path("f"), missing("no"), dir(".");
  EXPECT_EQ(fs_open_read(&missing), nullptr);
  EXPECT_EQ(fs_open_write(&dir), nullptr);
  char bytes[4] = {};
  istream* const directory_stream = fs_open_read(&dir);  // opens, and has nothing to read
  ASSERT_NE(directory_stream, nullptr);
  EXPECT_EQ(istream_read_len(directory_stream, bytes, 1), 0U);
  istream_destroy(directory_stream);
  istream* const stream = fs_open_read(&path);
  const struct {
    int origin;
    long long offset;
    int result;
    char next;
  } kSeeks[] = {{0, 4, 0, '4'}, {1, 2, 0, '7'}, {2, -1, 0, '9'}, {0, -1, -1, 0}, {7, 3, 3, 0}};
  for (const auto& row : kSeeks) {
    EXPECT_EQ(istream_seek_pos(stream, row.origin, row.offset), row.result);
    if (row.next != 0) {
      EXPECT_EQ(istream_read_len(stream, bytes, 1), 1U);
      EXPECT_EQ(bytes[0], row.next);
    }
  }
  istream_destroy(stream);
}
