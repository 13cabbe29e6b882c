// The text for an error number, as socket_get_error_desc shows it.
#ifndef NET_ERROR_DESCRIPTION_H
#define NET_ERROR_DESCRIPTION_H

#include "base/error_text.h"

namespace vexo {

// In the caller's own object; what socket_get_error_desc returned last shows it from now on.
ErrorText describe_error(int error_number);

}  // namespace vexo

#endif
