// Writes the manual page and the completions of zeph into the folder given.
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include "cli/application.h"
#include "cli/documents/completions.h"
#include "cli/documents/manual.h"
#include "zeph/build_facts.h"

namespace {

void write(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
  out.close();
  if (!out) throw std::runtime_error(path + " cannot be written");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 2) throw std::runtime_error("usage: zeph_documents FOLDER");
    const std::string folder = std::string(argv[1]) + "/";
    const zeph::Application z;
    const CLI::App& app = z.app;
    using namespace zeph::documents;
    write(folder + "zeph.1", manualPage(app, zeph::kVersion, zeph::kSourceDate));
    write(folder + "zeph.bash", bashCompletion(app));
    write(folder + "_zeph", zshCompletion(app));
    write(folder + "zeph.fish", fishCompletion(app));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
