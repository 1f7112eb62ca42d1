// Commands about the program itself.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/command_parts.h"
#include "cli/commands.h"
#include "kernels/processor.h"
#include "zeph/checks/machine.h"
#include "zeph/checks/memory.h"
#include "zeph/zeph_c.h"

namespace zeph {

namespace {

std::string limitText(double bytes) {
  return std::isfinite(bytes) ? memoryText(bytes) : "no limit";
}

void printLine(const Console& console, const std::string& what, const std::string& text) {
  if (!console.manner.json) std::printf("%-22s %s\n", (what + ":").c_str(), text.c_str());
}

void printVersions(Console& console) {
  console.figures.add("version", zeph_version()).add("sources", sourceDate());
  console.figures.add("processor_level", processorLevelText());
  if (!console.manner.json) std::printf("zeph %s\n", versionText().c_str());
  JsonObject parts;
  for (const auto& [name, version] : componentVersions()) {
    parts.add(name, version);
    printLine(console, name, version);
  }
  console.figures.add("components", parts);
  printLine(console, "processor level", processorLevelText());
}

int diagnose(const Files&, Console& console) {
  printVersions(console);
  const int threads = korin::kernels::availableProcessors();
  const MemorySeen seen = memorySeen();
  console.figures.add("threads", threads).add("memory_installed", seen.installed);
  console.figures.add("memory_free", seen.free);
  console.figures.add("memory_left_in_control_groups", seen.controlGroups);
  console.figures.add("memory_left_in_address_space", seen.addressSpace);
  printLine(console, "threads", std::to_string(threads));
  printLine(console, "memory installed", memoryText(seen.installed));
  printLine(console, "memory free", memoryText(seen.free));
  printLine(console, "control groups leave", limitText(seen.controlGroups));
  printLine(console, "ulimit -v leaves", limitText(seen.addressSpace));
  bool well = true;
  std::vector<std::string> wrong;
  for (const SelfTestResult& r : selfTest()) {
    well = well && r.passed;
    if (!r.passed) wrong.push_back(r.what + ": " + r.detail);
    printLine(console, "self-test", r.what + (r.passed ? " passed, " : " FAILED, ") + r.detail);
  }
  console.figures.add("well", well).add("wrong", wrong);
  printLine(console, "all in all", well ? "well" : "something is wrong");
  return well ? 0 : 1;
}

}  // namespace

void declareVersion(Application& z) {
  declare(z, "version", "The version of the library, and of what it runs on", "  zeph version",
          std::make_shared<Files>(), [](const Files&, Console& console) {
            printVersions(console);
            return 0;
          });
}

void declareDoctor(Application& z) {
  declare(z, "doctor", "Versions, processor, memory, and a self-test of known answers",
          "  zeph doctor    exit status 1 when something is wrong", std::make_shared<Files>(),
          diagnose);
}

}  // namespace zeph
