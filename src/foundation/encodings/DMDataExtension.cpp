#include <dmf/DMDataExtension.h>

#include <dmf/ADMSecureData.h>
#include <dmf/DMStringExtension.h>

#include "foundation/encodings/Base64.h"

#include <algorithm>
#include <utility>
#include <vector>

using dmf::Data;

std::string com_ql_dmf_hexadecimalRepresentationString(const Data& receiver)
{
    return com_ql_dmf_hexadecimalRepresentationString(receiver.text());
}

Data com_ql_dmf_base64Data(const Data& receiver)
{
    const auto bytes = receiver.bytes();
    // Padding wherever no character is written.
    std::vector<std::uint8_t> encoded((bytes.size() + 2) / 3 * 4, '=');
    auto to = encoded.begin();
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(bytes.size() - i, 3);
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = group << 8 | (k < count ? bytes[i + k] : 0u);
        for (std::size_t k = 0; k <= count; ++k)
            to[static_cast<std::ptrdiff_t>(k)] =
                static_cast<std::uint8_t>(dmf::internal::kDMBase64[group >> (18 - 6 * k) & 63]);
        to += 4;
    }
    return Data(std::move(encoded));
}

std::string com_ql_dmf_base64String(const Data& receiver)
{
    return std::string(com_ql_dmf_base64Data(receiver).text());
}

std::uint32_t com_ql_dmf_MD5Hash(const Data& receiver)
{
    return ADMSecureData().MD5HashForData(receiver);
}

bool com_ql_dmf_hasNULLTermination(const Data& receiver) noexcept
{
    return receiver.text().find('\0') != std::string_view::npos;
}
