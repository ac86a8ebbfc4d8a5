// The files that a writer or a direct conversion produced for one source: each path with its
// page number (0 when the result is one file). The pipeline saves each entry to its final name.
#pragma once

#include <string>
#include <vector>

namespace pictavo::tools {

struct WrittenFile {
  std::string file_name;
  int page = 0;
};

using WrittenFiles = std::vector<WrittenFile>;

}  // namespace pictavo::tools
