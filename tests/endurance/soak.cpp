// Does everything that a program does with the library, again and again, and ends with a table: how long a round of
// each took, and whether memory, threads and descriptors stayed level. usage: soak ROUNDS

#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "Works.h"

namespace {

using Clock = std::chrono::steady_clock;

std::ptrdiff_t entriesOf(const char* folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

struct Level {
    long kilobytes = 0;
    std::ptrdiff_t threads = 0, descriptors = 0;

    /// What is there once what ends by itself has had time to: at most what `before` says, or what is left later.
    static Level settled(const Level* before)
    {
        const auto limit = Clock::now() + std::chrono::seconds(before ? 20 : 2);
        Level level = now();
        while (Clock::now() < limit &&
               (!before || level.threads > before->threads || level.descriptors > before->descriptors)) {
            std::this_thread::yield();
            level = now();
        }
        return level;
    }

private:
    static Level now()
    {
        ::malloc_trim(0); // what the C library keeps for the next allocation is no growth
        Level level{0, entriesOf("/proc/self/task"), entriesOf("/proc/self/fd")};
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages >> pages;
        level.kilobytes = pages * (::sysconf(_SC_PAGESIZE) / 1024);
        return level;
    }
};

} // namespace

int main(int argc, char** argv)
{
    const long rounds = argc == 2 ? std::atol(argv[1]) : 0;
    if (rounds < 1)
        return std::fprintf(stderr, "usage: soak ROUNDS\n"), 2;
    endurance::Stage stage(endurance::startEchoDevice());

    const auto all = endurance::works();
    std::vector<double> seconds(all.size());
    bool isGood = true;
    const auto round = [&] {
        for (std::size_t i = 0; i < all.size(); ++i) {
            const auto begin = Clock::now();
            const auto outcome = all[i].run(stage);
            seconds[i] += std::chrono::duration<double>(Clock::now() - begin).count();
            if (outcome != endurance::Outcome::done) {
                std::printf("%s: %s\n", std::string(all[i].name).c_str(),
                            std::string(endurance::nameOf(outcome)).c_str());
                isGood = false;
            }
        }
    };
    // What is made once, on first use, is made in the first rounds.
    constexpr int first = 3;
    for (int i = 0; i < first; ++i)
        round();
    seconds.assign(all.size(), 0);
    const Level before = Level::settled(nullptr);
    for (long i = 0; i < rounds && isGood; ++i)
        round();
    const Level after = Level::settled(&before);

    std::printf("%-16s %12s\n", "work", "ms a round");
    for (std::size_t i = 0; i < all.size(); ++i)
        std::printf("%-16s %12.2f\n", std::string(all[i].name).c_str(),
                    seconds[i] * 1000 / static_cast<double>(rounds));
    std::printf("\n%-16s %12s %12s\n", "", "before", "after");
    std::printf("%-16s %12ld %12ld\n", "memory (KiB)", before.kilobytes, after.kilobytes);
    std::printf("%-16s %12td %12td\n", "threads", before.threads, after.threads);
    std::printf("%-16s %12td %12td\n", "descriptors", before.descriptors, after.descriptors);

    // Allocators give pages back as they like; a leak of a few hundred bytes a round shows in a long run.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const long allowed = after.kilobytes; // these keep what is freed, to notice who still uses it
#else
    const long allowed = 2048 + rounds / 4;
#endif
    if (after.kilobytes > before.kilobytes + allowed) {
        std::printf("memory grew by more than %ld KiB\n", allowed);
        isGood = false;
    }
    if (after.threads > before.threads || after.descriptors > before.descriptors) {
        std::printf("threads or descriptors were left behind\n");
        isGood = false;
    }
    return isGood ? 0 : 1;
}
