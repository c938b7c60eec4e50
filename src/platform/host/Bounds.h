#pragma once

namespace dmf::internal {

/// For how long a call waits for somebody else's process, in seconds since its beginning.
struct Bounds {
    double answer = 2.0;  // programs answer at once or not at all
    double person = 30.0; // people have to read, remember and type
};

} // namespace dmf::internal
