#include "tools/vexo/failure.h"

#include <utility>

namespace tool {

Failure::Failure(Exit exit_status, std::string error_code, std::string error_cause,
                 std::string error_remedy)
    : status(exit_status),
      code(std::move(error_code)),
      cause(std::move(error_cause)),
      remedy(std::move(error_remedy)) {}

}  // namespace tool
