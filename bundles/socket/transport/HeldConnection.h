#pragma once

#include <memory>
#include <mutex>

#include "FileDescriptor.h"

namespace dmf::socket {

/// The connection that proved a device reachable, for the channel that opens next: many devices serve one connection at
/// a time, and take one without a byte for a job.
///
///     none ──keep──► held ──take──► none, the channel has it
///                      └──two seconds, the device hung up, another is kept, or this object goes──► none, hung up
///
/// Thread-safe.
class HeldConnection {
public:
    HeldConnection();
    ~HeldConnection();

    void keep(FileDescriptor socket);
    /// The connection, if one is held that the device has not ended.
    [[nodiscard]] FileDescriptor take();
    /// Whether `take` would give one.
    [[nodiscard]] bool stands();

    class Slot; ///< of one `keep`

private:
    [[nodiscard]] std::shared_ptr<Slot> exchange(std::shared_ptr<Slot> slot);

    std::mutex lock_;
    std::shared_ptr<Slot> slot_; // guarded by lock_
};

} // namespace dmf::socket
