// Runs each target over the seeds and some thousand mutations of them, the same ones every time. It finds what lies
// near the seeds, with any compiler and in seconds; libFuzzer goes further (README.md). usage: mutations SEEDS COUNT

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "Targets.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

class Mutator {
public:
    explicit Mutator(const std::vector<Bytes>& seeds) : seeds_(seeds) {}

    Bytes next()
    {
        Bytes bytes = seeds_[below(seeds_.size())];
        for (auto steps = below(4) + 1; steps > 0; --steps)
            change(bytes);
        return bytes;
    }

private:
    std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }

    void change(Bytes& bytes)
    {
        const auto position = static_cast<std::ptrdiff_t>(below(bytes.size() + 1));
        const auto place = bytes.begin() + position;
        const auto end =
            place + static_cast<std::ptrdiff_t>(below(bytes.size() + 1 - static_cast<std::size_t>(position)));
        switch (below(5)) {
        case 0: // another byte
            if (place != bytes.end())
                *place = static_cast<std::uint8_t>(random_());
            break;
        case 1: bytes.erase(place, end); break;
        case 2: { // a piece twice
            const Bytes piece(place, end);
            bytes.insert(place, piece.begin(), piece.end());
            break;
        }
        case 3: { // a piece of another seed
            const Bytes& other = seeds_[below(seeds_.size())];
            const auto from = other.begin() + static_cast<std::ptrdiff_t>(below(other.size() + 1));
            bytes.insert(place, from, other.end());
            break;
        }
        default: bytes.insert(place, below(64), static_cast<std::uint8_t>("<%;:\"\0\xff/"[below(8)]));
        }
    }

    const std::vector<Bytes>& seeds_;
    std::mt19937 random_{20'240'131}; // the same run every time
};

/// What a target is given now; a broken promise ends the program with it on stderr.
Bytes gInput;

void tellInput(int)
{
    if (::write(STDERR_FILENO, gInput.data(), gInput.size()) >= 0)
        ::_exit(1);
}

void run(const dmf::fuzz::Target& target, Bytes input)
{
    gInput = std::move(input);
    target.run(gInput);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return std::cerr << "usage: mutations SEEDS COUNT\n", 2;
    const int count = std::atoi(argv[2]);
    std::signal(SIGABRT, tellInput);
    for (const auto& target : dmf::fuzz::targets()) {
        std::vector<Bytes> seeds;
        for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(argv[1]) / target.name)) {
            std::ifstream file(entry.path(), std::ios::binary);
            seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        }
        Mutator mutator(seeds);
        for (const auto& seed : seeds)
            ::run(target, seed);
        for (int run = 0; run < count; ++run)
            ::run(target, mutator.next());
        std::cout << target.name << ": " << seeds.size() << " seeds, " << count << " mutations\n";
    }
}
