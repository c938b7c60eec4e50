#pragma once

#include <ctime>

/// Processor seconds that this program has used since the object was made: unlike the time on the wall, they do not
/// depend on what else the machine does.
class CpuTime {
public:
    [[nodiscard]] double seconds() const
    {
        return static_cast<double>(std::clock() - start_) / static_cast<double>(CLOCKS_PER_SEC);
    }

private:
    std::clock_t start_ = std::clock();
};
