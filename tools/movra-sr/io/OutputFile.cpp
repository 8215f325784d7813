#include "tools/movra-sr/io/OutputFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <set>
#include <system_error>

#include "tools/movra-sr/Outcome.h"

namespace movra::tool {

namespace {

namespace fs = std::filesystem;

constexpr std::array<int, 5> endingSignals = {SIGHUP, SIGINT, SIGPIPE, SIGTERM, SIGXFSZ};

/// Holds the signals back, so that their handler finds the list of unfinished files whole.
class SignalPause {
 public:
  SignalPause() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : endingSignals) {
      sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, &before);
  }
  ~SignalPause() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
  SignalPause(const SignalPause&) = delete;
  SignalPause& operator=(const SignalPause&) = delete;

 private:
  sigset_t before{};
};

constexpr std::size_t randomDigits = 16;

/// What the temporary names of a file have in common: a random number in hexadecimal digits follows.
std::string partPrefix(const fs::path& file) {
  // A file name has 255 bytes at most.
  return "." + file.filename().string().substr(0, 200) + ".part-";
}

std::string randomName(const fs::path& file) {
  std::uint64_t number = 0;
  while (getrandom(&number, sizeof number, 0) != sizeof number) {
  }
  std::array<char, randomDigits + 1> digits{};
  std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(number));
  return partPrefix(file) + digits.data();
}

bool isPartOf(const std::string& name, const std::string& prefix) {
  return name.size() == prefix.size() + randomDigits && name.compare(0, prefix.size(), prefix) == 0 &&
         name.find_first_not_of("0123456789abcdef", prefix.size()) == std::string::npos;
}

/// A burst of many frames has more files open than a process may have by default.
bool allowMoreFiles() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) {
    return false;
  }
  limit.rlim_cur = limit.rlim_max;
  return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

std::string systemReason() {
  return std::generic_category().message(errno);
}

}  // namespace

OutputFile* OutputFile::newest = nullptr;

OutputFile::OutputFile(fs::path path, bool replace) : finalPath(std::move(path)), mayReplace(replace) {
  std::error_code error;
  if (finalPath.filename().empty() || fs::is_directory(finalPath, error)) {
    fail("it is a folder; give the name of a file");
  }
  if (!fs::is_directory(folder(), error)) {
    fail("the folder " + folder().string() + " does not exist; create it first");
  }
  const fs::file_status status = fs::status(finalPath, error);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    fail("it is a device and no file; give the name of a file");
  }
  if (!replace && fs::exists(fs::symlink_status(finalPath, error))) {
    fail("it exists; give another name, or --force to replace it");
  }
  removeLeftovers();
  const SignalPause pause;
  create();
  older = newest;
  newest = this;
}

OutputFile::~OutputFile() {
  const SignalPause pause;
  unlink(partPath.c_str());
  if (part >= 0) {
    close(part);
  }
  OutputFile** link = &newest;
  while (*link != this) {
    link = &(*link)->older;
  }
  *link = older;
}

fs::path OutputFile::folder() const {
  return finalPath.has_parent_path() ? finalPath.parent_path() : ".";
}

void OutputFile::removeLeftovers() const {
  std::error_code error;
  const std::string prefix = partPrefix(finalPath);
  for (fs::directory_iterator entry(folder(), error), end; !error && entry != end; entry.increment(error)) {
    std::error_code ignored;
    if (!isPartOf(entry->path().filename().string(), prefix) || !fs::is_regular_file(entry->symlink_status(ignored))) {
      continue;
    }
    const int left = open(entry->path().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (left < 0) {
      continue;
    }
    // A run that is alive holds the lock.
    if (flock(left, LOCK_EX | LOCK_NB) == 0) {
      unlink(entry->path().c_str());
    }
    close(left);
  }
}

void OutputFile::create() {
  struct stat replaced {};
  const bool replaces = stat(finalPath.c_str(), &replaced) == 0;
  do {
    partPath = folder() / randomName(finalPath);
    part = open(partPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, replaces ? 0600 : 0666);
  } while (part < 0 && (errno == EEXIST || (errno == EMFILE && allowMoreFiles())));
  if (part < 0) {
    const std::string reason = systemReason();
    fail("nothing can be put into the folder " + folder().string() + " (" + reason +
         "); check its permissions, or take another one");
  }
  flock(part, LOCK_EX | LOCK_NB);
  if (replaces) {
    // The owner is kept where the system allows it, and the permissions in any case.
    const bool sameOwner = fchown(part, replaced.st_uid, replaced.st_gid) == 0;
    fchmod(part, replaced.st_mode & (sameOwner ? 07777U : 0777U));
  }
}

void OutputFile::removeUnfinished(int signal) {
  for (const OutputFile* file = newest; file != nullptr; file = file->older) {
    unlink(file->partPath.c_str());
  }
  raise(signal);  // its default action is back and ends the program
}

void OutputFile::removeUnfinishedOnSignals() {
  struct sigaction action {};
  action.sa_handler = removeUnfinished;
  action.sa_flags = SA_RESETHAND;
  for (const int signal : endingSignals) {
    struct sigaction before {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) {
      sigaction(signal, &action, nullptr);
    }
  }
}

void OutputFile::keepApartFrom(const std::vector<std::string>& inputs) const {
  for (const std::string& input : inputs) {
    std::error_code error;
    if (fs::equivalent(input, finalPath, error)) {
      fail("it is one of the inputs; give another name");
    }
  }
}

bool OutputFile::isSameAs(const OutputFile& other) const {
  std::error_code error;
  return finalPath.filename() == other.finalPath.filename() && fs::equivalent(folder(), other.folder(), error);
}

void OutputFile::write(const void* bytes, std::size_t count) const {
  const char* at = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t step = ::write(part, at, count);
    if (step < 0 && errno == EINTR) {
      continue;
    }
    if (step <= 0) {
      failWriting();
    }
    at += step;
    count -= static_cast<std::size_t>(step);
  }
}

void OutputFile::finishWriting() {
  // Some file systems tell only now that the disk is full. They know no fsync for some files; that is no failure.
  if (fsync(part) != 0 && errno != EINVAL) {
    failWriting();
  }
  // Others tell when a descriptor is closed. The file's own stays open, for its lock.
  const int copy = dup(part);
  if (copy < 0 || (close(copy) != 0 && errno != EINTR)) {
    failWriting();
  }
}

void OutputFile::takeName() {
  const char* const from = partPath.c_str();
  const char* const to = finalPath.c_str();
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
    named = Named::asNew;
    return;
  }
  if (errno == EEXIST && !mayReplace) {
    fail("it exists by now; give another name, or --force to replace it");
  }
  std::error_code error;
  if (fs::is_directory(finalPath, error)) {
    fail("it is a folder by now; give the name of a file");
  }
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_EXCHANGE) == 0) {
    named = Named::exchanged;
    return;
  }
  // A file system without these ways of renaming.
  if (!mayReplace && fs::exists(finalPath, error)) {
    fail("it exists by now; give another name, or --force to replace it");
  }
  if (rename(from, to) != 0) {
    fail(systemReason());
  }
  named = Named::irrevocably;
}

void OutputFile::giveNameBack() {
  if (named == Named::asNew) {
    rename(finalPath.c_str(), partPath.c_str());
  } else if (named == Named::exchanged) {
    renameat2(AT_FDCWD, partPath.c_str(), AT_FDCWD, finalPath.c_str(), RENAME_EXCHANGE);
  }
  named = Named::not_;
}

void OutputFile::commitAll(const std::vector<OutputFile*>& files) {
  for (OutputFile* file : files) {
    file->finishWriting();
  }
  const SignalPause pause;
  try {
    for (OutputFile* file : files) {
      file->takeName();
    }
  } catch (...) {
    std::for_each(files.rbegin(), files.rend(), [](OutputFile* file) { file->giveNameBack(); });
    throw;
  }
  std::set<fs::path> folders;
  for (OutputFile* file : files) {
    if (file->named == Named::exchanged) {
      unlink(file->partPath.c_str());  // what was replaced
    }
    folders.insert(file->folder());
  }
  // The names are safe once their folders are; a file system that cannot say so is no failure.
  for (const fs::path& folder : folders) {
    const int opened = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened >= 0) {
      fsync(opened);
      close(opened);
    }
  }
}

void OutputFile::fail(const std::string& reason) const {
  throw Failure(ExitCode::outputNotWritten, "cannot write " + finalPath.string() + ": " + reason);
}

void OutputFile::failWriting() const {
  fail("writing failed; check the permissions of the folder and the space on the disk");
}

}  // namespace movra::tool
