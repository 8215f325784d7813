// Output files: whole or not at all, alone and together, and what others left
// or put in their place.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>

#include "tests/support/TestFolder.h"
#include "tests/tool/ToolFailure.h"
#include "tools/movra-sr/io/OutputFile.h"

using namespace movra::tool;

/// Errors that the calls below give instead of doing their work, or after it; 0 for none. They stand in for the C
/// library's in this program.
namespace failing {
int sync = 0;
int closing = 0;
int renaming = 0;

int result(long done, int error) {
  errno = error != 0 ? error : errno;
  return error != 0 ? -1 : static_cast<int>(done);
}
}  // namespace failing

extern "C" int fsync(int file) {
  return failing::result(syscall(SYS_fsync, file), failing::sync);
}
extern "C" int close(int file) {
  return failing::result(syscall(SYS_close, file), failing::closing);
}
extern "C" int renameat2(int from, const char* old, int to, const char* name, unsigned flags) noexcept {
  return failing::result(failing::renaming != 0 ? 0 : syscall(SYS_renameat2, from, old, to, name, flags),
                         failing::renaming);
}

namespace {

class ToolOutputFile : public TestFolder {
 protected:
  std::size_t filesInFolder() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()));
  }
};

TEST_F(ToolOutputFile, AppearsWholeOrNotAtAll) {
  {
    OutputFile dropped(at("a.txt"), false);
    dropped.write("half");
  }
  EXPECT_EQ(filesInFolder(), 0U);
  OutputFile kept(at("a.txt"), false);
  kept.write("who");
  kept.write("le");
  kept.commit();
  EXPECT_EQ(readAll(at("a.txt")), "whole");
  ASSERT_EQ(mkfifo(at("device").c_str(), 0600), 0);
  std::filesystem::create_hard_link(at("a.txt"), at("b.txt"));
  std::filesystem::create_symlink("nowhere", at("link.txt"));
  const std::function<void()> refused[] = {
      [&] { OutputFile(at("a.txt"), false); },
      [&] { OutputFile(at("link.txt"), false); },
      [&] { OutputFile(at("no/a.txt"), true); },
      [&] { OutputFile(at("device"), true); },
      [&] { OutputFile(at("b.txt"), true).keepApartFrom({at("a.txt")}); },
  };
  for (const auto& work : refused) {
    EXPECT_NE(failureOf(work, ExitCode::outputNotWritten), "");
  }
  OutputFile full("/dev/shm/movra_test_" + std::to_string(getpid()), false);
  const OutputFile other(at("c.txt"), false);
  EXPECT_TRUE(kept.isSameAs(kept) && !kept.isSameAs(other));
}

TEST_F(ToolOutputFile, AReplacedFileKeepsItsPermissionsAndALinkIsNotFollowed) {
  writeAll(at("target.txt"), "target");
  std::filesystem::create_symlink("target.txt", at("link.txt"));
  writeAll(at("a.txt"), "old");
  ASSERT_EQ(chmod(at("a.txt").c_str(), 0640), 0);
  for (const std::string name : {"a.txt", "link.txt"}) {
    OutputFile file(at(name), true);
    file.write("new");
    file.commit();
    EXPECT_EQ(readAll(at(name)), "new");
  }
  struct stat status {};
  ASSERT_EQ(stat(at("a.txt").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
  EXPECT_EQ(readAll(at("target.txt")), "target");
  EXPECT_EQ(filesInFolder(), 3U);
}

TEST_F(ToolOutputFile, OfSeveralAllAreNewOrAllAreOld) {
  writeAll(at("old.txt"), "old");
  for (const bool disturbed : {true, false}) {
    OutputFile replacing(at("old.txt"), true);
    OutputFile fresh(at("fresh.txt"), false);
    OutputFile last(at("last.txt"), false);
    for (OutputFile* file : {&replacing, &fresh, &last}) {
      file->write("new");
    }
    if (disturbed) {
      writeAll(at("last.txt"), "of somebody else");
    }
    const std::string failure = failureOf(
        [&] {
          OutputFile::commitAll({&replacing, &fresh, &last});
        },
        ExitCode::outputNotWritten);
    EXPECT_EQ(failure.find("last.txt") != std::string::npos, disturbed) << failure;
    EXPECT_EQ(readAll(at("old.txt")), disturbed ? "old" : "new");
    EXPECT_EQ(std::filesystem::exists(at("fresh.txt")), !disturbed);
    EXPECT_EQ(readAll(at("last.txt")), disturbed ? "of somebody else" : "new");
    std::filesystem::remove(at("last.txt"));
  }
  EXPECT_EQ(filesInFolder(), 2U);
}

TEST_F(ToolOutputFile, WhatTheDiskSaysLastIsAFailureAndWhatAFileSystemCannotDoIsNone) {
  writeAll(at("a.txt"), "old");
  const auto replace = [&](const char* text) {
    return failureOf(
        [&] {
          OutputFile file(at("a.txt"), true);
          file.write(text);
          file.commit();
        },
        ExitCode::outputNotWritten);
  };
  for (int* const error : {&failing::sync, &failing::closing}) {
    *error = EIO;
    const std::string failure = replace("new");
    *error = 0;
    EXPECT_NE(failure.find("a.txt: writing failed"), std::string::npos) << failure;
    EXPECT_EQ(readAll(at("a.txt")), "old");
  }
  failing::sync = failing::renaming = EINVAL;
  EXPECT_EQ(replace("new"), "");
  EXPECT_EQ(readAll(at("a.txt")), "new");
  OutputFile fresh(at("b.txt"), false);
  writeAll(at("b.txt"), "of somebody else");
  EXPECT_NE(failureOf([&] { fresh.commit(); }, ExitCode::outputNotWritten), "");
  failing::sync = failing::renaming = 0;
  EXPECT_EQ(readAll(at("b.txt")), "of somebody else");
  EXPECT_EQ(filesInFolder(), 3U);  // with the unfinished one, which is still open
}

using ToolOutputFileDeathTest = ToolOutputFile;

TEST_F(ToolOutputFileDeathTest, ASignalLeavesNothingAndTheNextRunRemovesWhatAKilledOneLeft) {
  const auto writeUntil = [&](int signal) {
    OutputFile::removeUnfinishedOnSignals();
    OutputFile first(at("a.txt"), false);
    OutputFile second(at("b.txt"), false);
    OutputFile(at("c.txt"), false).write("given up");
    first.write("half");
    second.write("half");
    std::raise(signal);
  };
  EXPECT_EXIT(writeUntil(SIGTERM), testing::KilledBySignal(SIGTERM), "");
  EXPECT_EQ(filesInFolder(), 0U);
  EXPECT_EXIT(writeUntil(SIGKILL), testing::KilledBySignal(SIGKILL), "");
  EXPECT_EQ(filesInFolder(), 2U);
  // A run that is alive keeps its file; a file that only looks alike stays.
  writeAll(at(".a.txt.part-0123456789abcdefg"), "mine");
  OutputFile alive(at("b.txt"), false);
  OutputFile next(at("b.txt"), false);
  OutputFile other(at("a.txt"), false);
  EXPECT_EQ(filesInFolder(), 4U);
  alive.write("alive");
  alive.commit();
  EXPECT_EQ(readAll(at("b.txt")), "alive");
}

}  // namespace
