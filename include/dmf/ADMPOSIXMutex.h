#pragma once

#include <cstdint>
#include <memory>

#include <dmf/IDMLock.h>
#include <dmf/platform/Export.h>

/// The system's mutex behind the lock interface. The thread that locked it unlocks it; a lock that another thread is to
/// release is of another kind. Each operation passes on what the system answers, EINVAL when there is no mutex for want
/// of memory. Thread-safe; must not be locked when its last reference goes.
class DMF_EXPORT ADMPOSIXMutex : public IDMLock {
public:
    /// A mutex that blocks the thread that locks it twice; empty when the system refuses to make one.
    [[nodiscard]] static std::shared_ptr<ADMPOSIXMutex> newMutex() { return initRecursive(false); }
    /// A mutex that one thread may lock several times and then unlocks as often.
    [[nodiscard]] static std::shared_ptr<ADMPOSIXMutex> newRecursiveMutex() { return initRecursive(true); }
    [[nodiscard]] static std::shared_ptr<ADMPOSIXMutex> init() { return initRecursive(false); }
    [[nodiscard]] static std::shared_ptr<ADMPOSIXMutex> initRecursive(bool recursive);

    ~ADMPOSIXMutex() override;
    ADMPOSIXMutex(const ADMPOSIXMutex&) = delete;
    ADMPOSIXMutex& operator=(const ADMPOSIXMutex&) = delete;

    std::int32_t lock() override;
    std::int32_t unlock() override;
    [[nodiscard]] std::int32_t trylock() override;

private:
    struct Mutex;
    explicit ADMPOSIXMutex(std::unique_ptr<Mutex> mutex);
    const std::unique_ptr<Mutex> lock_;
};
