// What to do about a failure, as far as the error and this host tell.
#ifndef TOOLS_VEXO_EXPLAIN_H
#define TOOLS_VEXO_EXPLAIN_H

#include "tools/vexo/failure.h"
#include "tools/vexo/options.h"

namespace tool {

// The failure with a remedy for users of the tool, and a cause that this host knows better.
Failure explained(Failure failure, const Options& options);

}  // namespace tool

#endif
