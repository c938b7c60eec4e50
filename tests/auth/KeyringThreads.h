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

/// How many threads of the library ask the keyring, or a service for the keyring.
inline int keyringThreads()
{
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        count += name == "dmf-keyring" ? 1 : 0;
    }
    return count;
}

/// Waits until what the keyring was asked has ended on the library's side as well.
inline bool noKeyringThreadIsLeft()
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (keyringThreads() > 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    return keyringThreads() == 0;
}
