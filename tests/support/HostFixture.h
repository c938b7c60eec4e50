#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "platform/host/Host.h"
#include "platform/host/Nap.h"

/// A machine of the test's own: an empty root folder that is removed at the end, a clock that the test moves, an empty
/// environment and a system log that is kept. Put it first in a test, so that it goes last.
class HostFixture {
public:
    HostFixture()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "dmf-test-XXXXXX").string();
        host_.rootFolder = ::mkdtemp(pattern.data());
        host_.environmentOverride.emplace();
        host_.processName = "testprogram";
        host_.systemLog = [this](int priority, std::string_view line) {
            std::lock_guard guard(lock_);
            systemLog_.emplace_back(priority, std::string(line));
        };
        dmf::internal::Host::install(&host_);
    }
    ~HostFixture()
    {
        dmf::internal::Host::install(nullptr);
        std::error_code ignored;
        std::filesystem::remove_all(host_.rootFolder, ignored);
    }
    HostFixture(const HostFixture&) = delete;
    HostFixture& operator=(const HostFixture&) = delete;

    void advance(std::chrono::duration<double> by)
    {
        host_.clockOffset += std::chrono::duration_cast<std::chrono::microseconds>(by).count();
        dmf::internal::Nap::clockHasMoved();
    }
    void setSystemVersion(std::uint32_t version) { host_.systemVersion = version; }
    void setEnvironment(const std::string& name, std::string value)
    {
        (*host_.environmentOverride)[name] = std::move(value);
    }
    dmf::internal::Host& host() { return host_; }

    /// Where the library finds what it knows as `absolute`.
    std::filesystem::path path(std::string_view absolute) const { return host_.path(absolute); }
    void writeFile(std::string_view absolute, std::string_view content) const
    {
        std::filesystem::create_directories(path(absolute).parent_path());
        std::ofstream(path(absolute), std::ios::binary) << content;
    }
    std::string readFile(std::string_view absolute) const
    {
        std::ifstream file(path(absolute), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::vector<std::pair<int, std::string>> systemLog() const
    {
        std::lock_guard guard(lock_);
        return systemLog_;
    }

private:
    dmf::internal::Host host_;
    mutable std::mutex lock_;
    std::vector<std::pair<int, std::string>> systemLog_;
};
