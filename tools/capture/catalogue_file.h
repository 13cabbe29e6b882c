// Catalogues in files, as `vexo list --catalogue` prints them and `vexo-sim -c` takes them.
#ifndef TOOLS_CAPTURE_CATALOGUE_FILE_H
#define TOOLS_CAPTURE_CATALOGUE_FILE_H

#include "tools/capture/names.h"

namespace capture {

// Throws std::runtime_error with a line that tells what is wrong.
Catalogue read_catalogue_file(const std::string& path);

}  // namespace capture

#endif
