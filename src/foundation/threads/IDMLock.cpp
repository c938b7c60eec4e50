#include <dmf/IDMLock.h>

#include <array>

const dmf::Protocol& IDMLock::protocol()
{
    static constexpr std::array<std::string_view, 3> operations = {"lock", "unlock", "trylock"};
    static constexpr dmf::Protocol protocol("IDMLock", {}, operations);
    return protocol;
}

IDMLock::~IDMLock() = default;
