#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace movra::tool {

/// The bytes of an input: a file, or what was read from standard input. All readers of formats read through it.
class Bytes {
 public:
  virtual ~Bytes() = default;
  virtual std::uint64_t size() const = 0;

  /// Copies up to `count` bytes that start at `offset`; returns how many there were.
  virtual std::size_t read(std::uint64_t offset, void* target, std::size_t count) const = 0;
};

/// A regular file. Throws Failure naming it when it is missing, a folder, a pipe, a device or may not be read.
std::shared_ptr<const Bytes> openFile(const std::string& path);

/// Bytes in memory.
std::shared_ptr<const Bytes> bytesOf(std::string content);

/// Standard input, read to its end. Throws Failure for more than a gibibyte.
std::shared_ptr<const Bytes> readStandardInput();

/// Reads `count` bytes of a descriptor, fewer only at its end. Throws Failure naming the input.
std::size_t readDescriptor(int descriptor, void* target, std::size_t count, const std::string& name);

}  // namespace movra::tool
