#include "foundation/encodings/CryptedData.h"

#include <algorithm>

namespace dmf::internal {
namespace {

constexpr std::size_t kPiece = 1024;

} // namespace

std::vector<std::uint8_t> cryptedData(CipherStream& stream, Bytes data)
{
    // Each piece goes straight to its place, and what has come out so far is never longer than what has gone in.
    std::vector<std::uint8_t> output(data.size() + CipherStream::kLongestSurplus);
    std::size_t written = 0;
    while (!data.empty()) {
        const Bytes piece = data.first(std::min(data.size(), kPiece));
        data = data.subspan(piece.size());
        const auto updated = stream.update(piece, MutableBytes(output).subspan(written));
        if (!updated)
            continue;
        written += *updated;
        if (data.empty())
            written += stream.finish(MutableBytes(output).subspan(written)).value_or(0);
    }
    output.resize(written);
    return output;
}

} // namespace dmf::internal
