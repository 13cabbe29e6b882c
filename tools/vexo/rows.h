// What commands that show packages have in common.
#ifndef TOOLS_VEXO_ROWS_H
#define TOOLS_VEXO_ROWS_H

#include "tools/vexo/source.h"
#include "tools/vexo/values.h"

namespace tool {

// A package as `read` and `watch` print it with --json.
Json document_of(const std::vector<VexoSessionVariable>& fields, const Row& row);

}  // namespace tool

#endif
