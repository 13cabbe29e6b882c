// Values of packages as text and as JSON.
#ifndef TOOLS_VEXO_VALUES_H
#define TOOLS_VEXO_VALUES_H

#include <string>
#include <vector>

#include "session/session.h"
#include "tools/vexo/output.h"

namespace tool {

// "1 package", "2 packages".
std::string counted(uint64_t count, const char* noun);

// A number as short as can be without being another one.
std::string number_text(double value);

// Each element of a value: numbers, true and false, or a text as it stands but for control
// characters.
std::vector<std::string> elements_of(const VexoSessionVariable& field, const void* record);

// The elements with commas between them: what `vexo write` takes.
std::string text_of(const VexoSessionVariable& field, const void* record);

// A value, or an array of them.
Json json_of(const VexoSessionVariable& field, const void* record);

}  // namespace tool

#endif
