// One libFuzzer program a target: DMF_FUZZ_TARGET is its name.

#include <algorithm>
#include <cstdlib>

#include "Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const auto* const target = [] {
        const auto all = dmf::fuzz::targets();
        const auto found =
            std::find_if(all.begin(), all.end(), [](const auto& it) { return it.name == DMF_FUZZ_TARGET; });
        return found == all.end() ? (std::abort(), nullptr) : &*found;
    }();
    target->run({data, size});
    return 0;
}
