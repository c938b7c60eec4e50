#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

/// How many descriptors the process has. GDBus closes those of its connections on its own thread.
inline std::ptrdiff_t openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

/// Waits until what the keyring was asked has ended on the library's side as well.
inline bool noKeyringThreadIsLeft()
{
    const auto isLeft = [] {
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(task.path() / "comm"), name);
            if (name == "dmf-keyring")
                return true;
        }
        return false;
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        if (!isLeft())
            return true;
        std::this_thread::yield();
    }
    return false;
}
