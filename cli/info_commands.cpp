// Commands about the program itself.
#include <cstdio>
#include <memory>

#include "cli/command_parts.h"
#include "cli/commands.h"
#include "zeph/general/version.h"

namespace zeph {

void declareVersion(Application& z) {
  declare(z, "version", "The version of the library", "  zeph version", std::make_shared<Files>(),
          [](const Files&, Console& console) {
            console.figures.add("version", versionText());
            if (!console.manner.json) std::printf("zeph %s\n", versionText().c_str());
            return 0;
          });
}

}  // namespace zeph
