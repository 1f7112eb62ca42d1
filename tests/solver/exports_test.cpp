#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

std::set<std::string> linesOf(const std::string& command) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::set<std::string> lines;
  for (char line[1000]; std::fgets(line, sizeof line, pipe.get());) {
    lines.insert(std::string(line, std::strcspn(line, "\n")));
  }
  return lines;
}

std::vector<std::string> difference(const std::set<std::string>& a,
                                    const std::set<std::string>& b) {
  std::vector<std::string> only;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(only));
  return only;
}

TEST(SharedLibrary, ExportsExactlyTheListedInterface) {
  std::set<std::string> listed, exported;
  std::ifstream list(ZEPH_EXPORT_LIST);
  for (std::string line; std::getline(list, line);) {
    const std::size_t first = line.find_first_not_of(" \""), last = line.find_last_not_of("\";");
    const bool isName = line.ends_with(";") && line.find_first_of("}*") == std::string::npos;
    if (isName || line.ends_with("\";")) listed.insert(line.substr(first, last + 1 - first));
  }
  for (const std::string& line : linesOf("nm -D -C --defined-only " ZEPH_SHARED_LIBRARY)) {
    exported.insert(line.substr(19));  // behind the address and the type
  }
  const std::vector<std::string> none;
  EXPECT_EQ(difference(listed, exported), none) << "lost their export macro or changed signature";
  EXPECT_EQ(difference(exported, listed), none) << "public by accident";
}

TEST(SharedLibrary, CarriesItsMajorVersionAndNeedsOnlyWhatItCalls) {
  EXPECT_EQ(linesOf("readelf -d " ZEPH_SHARED_LIBRARY " | grep -o 'libzeph_solver[^]]*'"),
            std::set<std::string>{"libzeph_solver.so.1"});
#ifndef ZEPH_ROOMS_AS_ONE  // there one function brings in all that its room calls
  // What only other parts of the dense library use.
  EXPECT_EQ(linesOf("readelf -d " ZEPH_SHARED_LIBRARY " | grep -E 'NEEDED.*(amd|metis|blas)'"),
            std::set<std::string>{});
#endif
}

}  // namespace
