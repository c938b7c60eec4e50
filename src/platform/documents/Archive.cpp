#include "platform/documents/Archive.h"

#include <dmf/platform/Unicode.h>

#include <glib.h>

#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace dmf::internal {
namespace {

// An archive is this head, a mark for the byte order, three bytes of zero, and a value of type "a(ayv)": keys and
// values, since keys and texts may hold any bytes. A value is a variant whose type tells its kind: b for a boolean,
// x, t and d for the three kinds of numbers, s for a text, (ay) for a text that is no plain UTF-8, ay for data, (d)
// for a date, av for an array, a(ayv) for a dictionary and () for nothing.
constexpr std::string_view magic = "DMA1";
constexpr std::size_t headSize = 8;
constexpr char nativeOrder = std::endian::native == std::endian::little ? 'l' : 'B';
constexpr char foreignOrder = std::endian::native == std::endian::little ? 'B' : 'l';
constexpr const char* dictionaryType = "a(ayv)";
/// Each level takes three of the 128 that the serialisation itself allows.
constexpr unsigned maximumDepth = 32;
constexpr std::size_t maximumSize = 16 << 20;

struct Release {
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
using Variant = std::unique_ptr<GVariant, Release>;

Variant owned(GVariant* floating)
{
    return Variant(g_variant_ref_sink(floating));
}

GVariant* bytesVariant(std::string_view bytes)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
}

std::string_view bytesOf(GVariant* variant)
{
    gsize count = 0;
    const auto* bytes = static_cast<const char*>(g_variant_get_fixed_array(variant, &count, 1));
    return {bytes, count};
}

GVariant* variantOf(const Value& value, unsigned depth);

GVariant* variantOf(const Number& number)
{
    switch (number.kind()) {
    case Number::Kind::signedInteger: return g_variant_new_int64(number.int64Value());
    case Number::Kind::unsignedInteger: return g_variant_new_uint64(number.uint64Value());
    case Number::Kind::real: break;
    }
    return g_variant_new_double(number.doubleValue());
}

GVariant* variantOf(const std::string& text)
{
    if (isValidUtf8(text) && text.find('\0') == text.npos)
        return g_variant_new_string(text.c_str());
    GVariant* content = bytesVariant(text);
    return g_variant_new_tuple(&content, 1);
}

/// The variants of all items, or null when one of them cannot be archived.
template <class Items, class Convert>
GVariant* variantOfItems(const Items& items, const char* itemType, Convert convert)
{
    std::vector<GVariant*> children;
    children.reserve(items.size());
    for (const auto& item : items) {
        GVariant* child = convert(item);
        if (!child) {
            for (auto* made : children)
                owned(made);
            return nullptr;
        }
        children.push_back(child);
    }
    return g_variant_new_array(G_VARIANT_TYPE(itemType), children.data(), children.size());
}

GVariant* variantOf(const Array& array, unsigned depth)
{
    return variantOfItems(array, "v", [&](const Value& item) {
        GVariant* content = variantOf(item, depth + 1);
        return content ? g_variant_new_variant(content) : nullptr;
    });
}

GVariant* variantOf(const Dictionary& dictionary, unsigned depth)
{
    return variantOfItems(dictionary, "(ayv)", [&](const Dictionary::Entry& entry) -> GVariant* {
        GVariant* content = variantOf(entry.value, depth + 1);
        if (!content)
            return nullptr;
        const std::array<GVariant*, 2> pair{bytesVariant(entry.key), g_variant_new_variant(content)};
        return g_variant_new_tuple(pair.data(), pair.size());
    });
}

/// A floating variant, or null for what cannot be archived.
GVariant* variantOf(const Value& value, unsigned depth)
{
    if (depth > maximumDepth)
        return nullptr;
    switch (value.kind()) {
    case Value::Kind::null: return g_variant_new_tuple(nullptr, 0);
    case Value::Kind::boolean: return g_variant_new_boolean(*value.asBool());
    case Value::Kind::number: return variantOf(*value.asNumber());
    case Value::Kind::string: return variantOf(*value.asString());
    case Value::Kind::data: return bytesVariant(value.asData()->text());
    case Value::Kind::date: {
        GVariant* seconds = g_variant_new_double(value.asDate()->secondsSince1970());
        return g_variant_new_tuple(&seconds, 1);
    }
    case Value::Kind::array: return variantOf(*value.asArray(), depth);
    case Value::Kind::dictionary: return variantOf(*value.asDictionary(), depth);
    case Value::Kind::object: break;
    }
    return nullptr;
}

std::optional<Value> valueOf(GVariant* variant, unsigned depth);

Variant childOf(GVariant* variant, std::size_t index)
{
    return Variant(g_variant_get_child_value(variant, index));
}

std::optional<Value> boxedValue(GVariant* box, unsigned depth)
{
    const Variant content(g_variant_get_variant(box));
    return valueOf(content.get(), depth);
}

std::optional<Value> arrayOf(GVariant* variant, unsigned depth)
{
    std::vector<Value> values;
    for (std::size_t i = 0; i < g_variant_n_children(variant); ++i) {
        auto value = boxedValue(childOf(variant, i).get(), depth + 1);
        if (!value)
            return std::nullopt;
        values.push_back(*std::move(value));
    }
    return Value(Array(std::move(values)));
}

std::optional<Value> dictionaryOf(GVariant* variant, unsigned depth)
{
    std::vector<Dictionary::Entry> entries;
    for (std::size_t i = 0; i < g_variant_n_children(variant); ++i) {
        const auto pair = childOf(variant, i);
        const auto key = childOf(pair.get(), 0);
        auto value = boxedValue(childOf(pair.get(), 1).get(), depth + 1);
        // Keys come in their order, each once, and null stands for no entry.
        const bool inOrder = entries.empty() || entries.back().key < bytesOf(key.get());
        if (!value || value->isNull() || !inOrder)
            return std::nullopt;
        entries.push_back({std::string(bytesOf(key.get())), *std::move(value)});
    }
    return Value(Dictionary(std::move(entries)));
}

std::optional<Value> valueOf(GVariant* variant, unsigned depth)
{
    if (depth > maximumDepth)
        return std::nullopt;
    const std::string_view type = g_variant_get_type_string(variant);
    if (type == "b")
        return Value(g_variant_get_boolean(variant) != FALSE);
    if (type == "x")
        return Value(std::int64_t{g_variant_get_int64(variant)});
    if (type == "t")
        return Value(std::uint64_t{g_variant_get_uint64(variant)});
    if (type == "d")
        return Value(g_variant_get_double(variant));
    if (type == "s")
        return Value(g_variant_get_string(variant, nullptr));
    if (type == "(ay)")
        return Value(bytesOf(childOf(variant, 0).get()));
    if (type == "ay")
        return Value(Data::fromText(bytesOf(variant)));
    if (type == "(d)")
        return Value(Date(g_variant_get_double(childOf(variant, 0).get())));
    if (type == "av")
        return arrayOf(variant, depth);
    if (type == dictionaryType)
        return dictionaryOf(variant, depth);
    return type == "()" ? std::optional(Value()) : std::nullopt;
}

} // namespace

std::optional<Data> archived(const Dictionary& dictionary)
{
    GVariant* floating = variantOf(dictionary, 1);
    if (!floating)
        return std::nullopt;
    const auto variant = owned(floating);
    std::vector<std::uint8_t> bytes(headSize + g_variant_get_size(variant.get()));
    if (bytes.size() > maximumSize)
        return std::nullopt;
    std::memcpy(bytes.data(), magic.data(), magic.size());
    bytes[magic.size()] = static_cast<std::uint8_t>(nativeOrder);
    g_variant_store(variant.get(), bytes.data() + headSize);
    return Data(std::move(bytes));
}

std::optional<Dictionary> unarchived(std::span<const std::uint8_t> bytes)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const std::string_view padding("\0\0\0", headSize - magic.size() - 1);
    if (text.size() < headSize || text.size() > maximumSize || !text.starts_with(magic) ||
        text.substr(magic.size() + 1, padding.size()) != padding)
        return std::nullopt;
    const char order = text[magic.size()];
    if (order != nativeOrder && order != foreignOrder)
        return std::nullopt;

    // Copied, since it must be aligned for reading.
    GBytes* content = g_bytes_new(bytes.data() + headSize, bytes.size() - headSize);
    auto variant = owned(g_variant_new_from_bytes(G_VARIANT_TYPE(dictionaryType), content, FALSE));
    g_bytes_unref(content);
    if (!g_variant_is_normal_form(variant.get()))
        return std::nullopt;
    if (order == foreignOrder)
        variant.reset(g_variant_byteswap(variant.get()));
    const auto value = valueOf(variant.get(), 1);
    return value ? std::optional(*value->asDictionary()) : std::nullopt;
}

} // namespace dmf::internal
