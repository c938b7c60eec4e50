#include <dmf/platform/Secret.h>

#include <string.h>

#include <algorithm>

namespace dmf {

Secret::Secret(std::string_view text) : bytes_(new char[text.size()], Wiping{text.size()})
{
    std::copy(text.begin(), text.end(), bytes_.get());
}

void Secret::wipe(void* memory, std::size_t size) noexcept
{
    if (size > 0)
        ::explicit_bzero(memory, size);
}

void Secret::Wiping::operator()(char* bytes) const noexcept
{
    wipe(bytes, size);
    delete[] bytes;
}

} // namespace dmf
