#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// A test with a folder of its own, removed afterwards. Test runs side by side do not share it.
class TestFolder : public testing::Test {
 protected:
  TestFolder() {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
  }
  ~TestFolder() override { std::filesystem::remove_all(folder); }

  std::string at(const std::string& name) const { return (folder / name).string(); }

  static std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  static void writeAll(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }

  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) /
      (std::string("movra_test_") + testing::UnitTest::GetInstance()->current_test_info()->name() + "_" +
       std::to_string(getpid()));
};
