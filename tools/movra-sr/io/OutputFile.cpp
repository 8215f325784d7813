#include "tools/movra-sr/io/OutputFile.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <system_error>

#include "tools/movra-sr/Outcome.h"

namespace movra::tool {

namespace {

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

}  // namespace

OutputFile* OutputFile::newest = nullptr;

OutputFile::OutputFile(std::filesystem::path path, bool replace) : finalPath(std::move(path)), partPath(finalPath) {
  std::error_code error;
  if (finalPath.filename().empty() || std::filesystem::is_directory(finalPath, error)) {
    fail("it is a folder; give the name of a file");
  }
  const std::filesystem::path folder = finalPath.has_parent_path() ? finalPath.parent_path() : ".";
  if (!std::filesystem::is_directory(folder, error)) {
    fail("the folder " + folder.string() + " does not exist; create it first");
  }
  const std::filesystem::file_status status = std::filesystem::status(finalPath, error);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    fail("it is a device and no file; give the name of a file");
  }
  if (!replace && std::filesystem::exists(status)) {
    fail("it exists; give another name, or --force to replace it");
  }
  if (access(folder.c_str(), W_OK | X_OK) != 0) {
    fail("nothing can be put into the folder " + folder.string() + " (" + std::generic_category().message(errno) +
         "); check its permissions, or take another one");
  }
  partPath.replace_filename("." + finalPath.filename().string() + ".part" + std::to_string(getpid()));

  const SignalPause pause;
  older = newest;
  newest = this;
}

OutputFile::~OutputFile() {
  const SignalPause pause;
  std::error_code ignored;
  std::filesystem::remove(partPath, ignored);
  OutputFile** link = &newest;
  while (*link != this) {
    link = &(*link)->older;
  }
  *link = older;
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
    if (std::filesystem::equivalent(input, finalPath, error)) {
      fail("it is one of the inputs; give another name");
    }
  }
}

void OutputFile::write(const void* bytes, std::size_t count) const {
  std::ofstream file(partPath, std::ios::binary | std::ios::trunc);
  file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
  file.close();
  if (file.fail()) {
    failWriting();
  }
}

void OutputFile::commit() {
  std::error_code error;
  std::filesystem::rename(partPath, finalPath, error);
  if (error) {
    fail(error.message());
  }
}

void OutputFile::fail(const std::string& reason) const {
  throw Failure(ExitCode::outputNotWritten, "cannot write " + finalPath.string() + ": " + reason);
}

void OutputFile::failWriting() const {
  fail("writing failed; check the permissions of the folder and the space on the disk");
}

}  // namespace movra::tool
