#include "tools/movra-sr/io/Bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/movra-sr/Outcome.h"

namespace movra::tool {

namespace {

constexpr std::size_t largestStandardInput = std::size_t{1} << 30U;

[[noreturn]] void fail(const std::string& name, const std::string& reason) {
  throw Failure(ExitCode::badInput, name + ": " + reason);
}

class FileBytes : public Bytes {
 public:
  FileBytes(const std::string& path, int opened) : descriptor(opened) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
      close(descriptor);
      fail(path, "is a folder; give a file");
    }
    // The format is known from the first bytes, and these can be read a second time in a file only.
    if (!S_ISREG(status.st_mode)) {
      close(descriptor);
      fail(path, "is a pipe or device; save the image to a file first, or give - for standard input");
    }
    bytes = static_cast<std::uint64_t>(status.st_size);
  }
  ~FileBytes() override { close(descriptor); }
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;

  std::uint64_t size() const override { return bytes; }

  std::size_t read(std::uint64_t offset, void* target, std::size_t count) const override {
    std::size_t done = 0;
    while (done < count && offset + done < bytes) {
      const ssize_t step =
          pread(descriptor, static_cast<char*>(target) + done, count - done, static_cast<off_t>(offset + done));
      if (step < 0 && errno == EINTR) {
        continue;
      }
      if (step <= 0) {
        break;
      }
      done += static_cast<std::size_t>(step);
    }
    return done;
  }

 private:
  int descriptor;
  std::uint64_t bytes = 0;
};

class MemoryBytes : public Bytes {
 public:
  explicit MemoryBytes(std::string text) : content(std::move(text)) {}

  std::uint64_t size() const override { return content.size(); }

  std::size_t read(std::uint64_t offset, void* target, std::size_t count) const override {
    if (offset >= content.size()) {
      return 0;
    }
    const std::size_t available = std::min(count, content.size() - static_cast<std::size_t>(offset));
    std::memcpy(target, content.data() + offset, available);
    return available;
  }

 private:
  std::string content;
};

}  // namespace

std::shared_ptr<const Bytes> openFile(const std::string& path) {
  // Without waiting: opening a pipe that nobody writes to would take forever.
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) {
    fail(path, errno == ENOENT || errno == ENOTDIR ? "no such file; check the name"
                                                   : "cannot be read; check its permissions");
  }
  return std::make_shared<FileBytes>(path, descriptor);
}

std::shared_ptr<const Bytes> bytesOf(std::string content) {
  return std::make_shared<MemoryBytes>(std::move(content));
}

std::shared_ptr<const Bytes> readStandardInput() {
  const std::string name = "standard input";
  std::string content;
  for (std::size_t room = std::size_t{1} << 16U;; room = std::min(2 * room, std::size_t{1} << 24U)) {
    const std::size_t before = content.size();
    content.resize(before + room);
    const std::size_t count = readDescriptor(STDIN_FILENO, content.data() + before, room, name);
    content.resize(before + count);
    if (count < room) {
      return bytesOf(std::move(content));
    }
    if (content.size() > largestStandardInput) {
      fail(name, "holds more than 1 GiB; save it to a file and give the file");
    }
  }
}

std::size_t readDescriptor(int descriptor, void* target, std::size_t count, const std::string& name) {
  std::size_t done = 0;
  while (done < count) {
    const ssize_t step = read(descriptor, static_cast<char*>(target) + done, count - done);
    if (step < 0 && errno == EINTR) {
      continue;
    }
    if (step < 0) {
      fail(name, std::string("cannot be read (") + std::strerror(errno) + ")");
    }
    if (step == 0) {
      break;
    }
    done += static_cast<std::size_t>(step);
  }
  return done;
}

}  // namespace movra::tool
