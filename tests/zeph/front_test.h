#ifndef ZEPH_TESTS_ZEPH_FRONT_TEST_H
#define ZEPH_TESTS_ZEPH_FRONT_TEST_H

// What tests of the public library share, with the standard headers that nearly all of them use.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "zeph/error.h"
#include "zeph/sparse_matrix.h"

/// A folder of its own for every test, removed with it.
class FrontTest : public ::testing::Test {
 protected:
  FrontTest() : folder_(std::filesystem::temp_directory_path() / unique()) {
    std::filesystem::create_directory(folder_);
  }
  ~FrontTest() override { std::filesystem::remove_all(folder_); }

  std::string path(const std::string& name) const { return folder_ / name; }

  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
  }

  static std::string read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  std::size_t fileCount() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(folder_), {}));
  }

  /// Runs work and returns "KIND sentence" of the Error it throws, without the folder's name.
  template <class Work>
  std::string errorOf(const Work& work) const {
    try {
      work();
    } catch (const zeph::Error& e) {
      std::string text = e.what();
      const std::string folder = folder_.string() + "/";
      for (std::size_t at; (at = text.find(folder)) != text.npos;) text.erase(at, folder.size());
      return std::to_string(zeph::exitCode(e.kind())) + " " + text;
    }
    return "no error";
  }

  /// Expects an Error whose "KIND sentence" starts with `words`, or has them later if not atStart.
  template <class Work>
  void expectError(const Work& work, const std::string& words, bool atStart = true) const {
    const std::string error = errorOf(work);
    const std::size_t at = error.find(words);
    EXPECT_TRUE(at == 0 || (!atStart && at != error.npos)) << error << "\nis not\n" << words;
    EXPECT_EQ(error.find('\n'), error.npos);
  }

  /// Random number from 0 to n - 1.
  unsigned below(std::size_t n) { return static_cast<unsigned>(random_() % n); }

  double uniform(double low = 0.0, double high = 1.0) {
    return low + (high - low) * static_cast<double>(random_()) / 4294967296.0;
  }

  std::mt19937 random_{42};

 private:
  static std::string unique() {
    static int counter = 0;
    return "zeph-front-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
  }

  std::filesystem::path folder_;
};

#endif
