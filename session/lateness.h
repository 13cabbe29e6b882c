// Who has made a package late.
#ifndef SESSION_LATENESS_H
#define SESSION_LATENESS_H

#include <algorithm>
#include <array>

#include "session/session.h"
#include "session/time.h"

namespace vexo::session {

// What the delay of a package is made up of.
class Lateness {
public:
    Nanoseconds& operator[](VexoSessionCause cause) { return parts_[cause]; }
    Nanoseconds operator[](VexoSessionCause cause) const { return parts_[cause]; }

    // The largest part says who.
    VexoSessionCause cause() const {
        const auto largest = std::max_element(parts_.begin(), parts_.end());
        return static_cast<VexoSessionCause>(largest - parts_.begin());
    }

private:
    std::array<Nanoseconds, VEXO_SESSION_CAUSES> parts_{};
};

}  // namespace vexo::session

#endif
