#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include <sys/resource.h>

/// Leaves the process so many descriptors, until it goes.
class DescriptorLimit {
public:
    explicit DescriptorLimit(unsigned left)
    {
        if (::getrlimit(RLIMIT_NOFILE, &before_) != 0)
            throw std::runtime_error("no limits");
        // The lowest free number first: what is below the limit and not open may still be had.
        rlimit limit = before_;
        limit.rlim_cur = 0;
        unsigned isFree = 0;
        for (unsigned number = 0;; ++number) {
            if (std::filesystem::exists("/proc/self/fd/" + std::to_string(number)))
                continue;
            if (isFree++ == left) {
                limit.rlim_cur = number;
                break;
            }
        }
        // Numbers above the limit that are open stay open.
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
            throw std::runtime_error("no limit");
    }
    ~DescriptorLimit() { lift(); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

    void lift() { ::setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};
