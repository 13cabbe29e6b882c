// A controller's catalogue as vexo-sim takes it.
#ifndef TOOLS_VEXO_CATALOGUE_H
#define TOOLS_VEXO_CATALOGUE_H

#include <string>
#include <vector>

#include "session/session.h"
#include "tools/vexo/output.h"

namespace tool {

inline constexpr uint32_t kKinds[] = {VEXO_SESSION_OUTPUT, VEXO_SESSION_INPUT, VEXO_SESSION_METHOD};

// "outputs", "inputs" or "methods".
std::string list_name(uint32_t kind);

// The entries of all lists.
std::vector<VexoSessionVariable> all_entries(VexoSession* session);

Json catalogue_of(const std::vector<VexoSessionVariable>& entries);

}  // namespace tool

#endif
