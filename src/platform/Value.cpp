#include <dmf/platform/Value.h>

#include <algorithm>
#include <stdexcept>

namespace dmf {
namespace {

/// Never destroyed: library threads may still look things up while the process ends.
const Value& nullValue() noexcept
{
    static const Value* const null = new Value;
    return *null;
}

/// Strings inside containers stand in quotes, so that a description stays unambiguous.
std::string quoted(std::string_view text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += c;
    }
    return result + "\"";
}

std::string nestedDescription(const Value& value)
{
    const auto* text = value.asString();
    return text ? quoted(*text) : value.description();
}

/// FNV-1a, 32 bits.
class Hash {
public:
    void add(std::string_view bytes) noexcept
    {
        for (const char c : bytes)
            state_ = (state_ ^ static_cast<std::uint8_t>(c)) * 16777619u;
    }
    void add(std::uint32_t word) noexcept
    {
        for (int shift = 0; shift < 32; shift += 8)
            state_ = (state_ ^ ((word >> shift) & 0xFF)) * 16777619u;
    }
    [[nodiscard]] std::uint32_t result() const noexcept { return state_; }

private:
    std::uint32_t state_ = 2166136261u;
};

} // namespace

Array::Array(std::initializer_list<Value> values) : Array(std::vector<Value>(values)) {}

Array::Array(std::vector<Value> values)
{
    if (!values.empty())
        storage_.edit() = std::move(values);
}

Array Array::ofStrings(const std::vector<std::string>& strings)
{
    return Array(std::vector<Value>(strings.begin(), strings.end()));
}

std::size_t Array::size() const noexcept
{
    const auto* values = storage_.get();
    return values ? values->size() : 0;
}

const Value& Array::at(std::size_t index) const
{
    const auto* values = storage_.get();
    if (!values || index >= values->size())
        throw std::out_of_range("array index " + std::to_string(index) + " beyond " + std::to_string(size()));
    return (*values)[index];
}

const Value* Array::begin() const noexcept
{
    const auto* values = storage_.get();
    return values ? values->data() : nullptr;
}

const Value* Array::end() const noexcept
{
    const auto* values = storage_.get();
    return values ? values->data() + values->size() : nullptr;
}

bool Array::contains(const Value& value) const
{
    return std::find(begin(), end(), value) != end();
}

void Array::reserve(std::size_t count)
{
    storage_.edit().reserve(count);
}

void Array::append(Value value)
{
    storage_.edit().push_back(std::move(value));
}

void Array::removeAt(std::size_t index)
{
    if (index >= size())
        throw std::out_of_range("array index " + std::to_string(index) + " beyond " + std::to_string(size()));
    auto& values = storage_.edit();
    values.erase(values.begin() + static_cast<std::ptrdiff_t>(index));
}

std::string Array::description() const
{
    std::string text = "(";
    for (const Value& value : *this) {
        if (text.size() > 1)
            text += ", ";
        text += nestedDescription(value);
    }
    return text + ")";
}

bool operator==(const Array& left, const Array& right)
{
    return left.storage_.sharesStorageWith(right.storage_) ||
           std::equal(left.begin(), left.end(), right.begin(), right.end());
}

namespace {

template <class Entries>
auto lowerBound(Entries& entries, std::string_view key)
{
    return std::lower_bound(entries.begin(), entries.end(), key,
                            [](const Dictionary::Entry& entry, std::string_view wanted) { return entry.key < wanted; });
}

} // namespace

Dictionary::Dictionary(std::initializer_list<Entry> entries)
{
    if (entries.size() == 0)
        return;
    storage_.edit().reserve(entries.size());
    for (const Entry& entry : entries)
        set(entry.key, entry.value);
}

Dictionary::Dictionary(std::vector<Entry> entries)
{
    std::erase_if(entries, [](const Entry& entry) { return entry.value.isNull(); });
    if (entries.empty())
        return;
    const auto comesFirst = [](const Entry& left, const Entry& right) { return left.key < right.key; };
    const auto outOfOrder = [](const Entry& left, const Entry& right) { return left.key >= right.key; };
    if (std::adjacent_find(entries.begin(), entries.end(), outOfOrder) != entries.end()) {
        std::stable_sort(entries.begin(), entries.end(), comesFirst);
        // Erasing from the back keeps the last of equal keys.
        const auto first = std::unique(entries.rbegin(), entries.rend(), [](const Entry& left, const Entry& right) {
                               return left.key == right.key;
                           }).base();
        entries.erase(entries.begin(), first);
    }
    storage_.edit() = std::move(entries);
}

std::size_t Dictionary::size() const noexcept
{
    const auto* entries = storage_.get();
    return entries ? entries->size() : 0;
}

const Dictionary::Entry* Dictionary::begin() const noexcept
{
    const auto* entries = storage_.get();
    return entries ? entries->data() : nullptr;
}

const Dictionary::Entry* Dictionary::end() const noexcept
{
    const auto* entries = storage_.get();
    return entries ? entries->data() + entries->size() : nullptr;
}

const Value& Dictionary::operator[](std::string_view key) const noexcept
{
    const Value* value = find(key);
    return value ? *value : nullValue();
}

const Value* Dictionary::find(std::string_view key) const noexcept
{
    const auto* entries = storage_.get();
    if (!entries)
        return nullptr;
    const auto place = lowerBound(*entries, key);
    return place != entries->end() && place->key == key ? &place->value : nullptr;
}

std::optional<std::string> Dictionary::string(std::string_view key) const
{
    return (*this)[key].string();
}

void Dictionary::reserve(std::size_t count)
{
    storage_.edit().reserve(count);
}

void Dictionary::set(std::string_view key, Value value)
{
    if (value.isNull())
        return;
    auto& entries = storage_.edit();
    // Whoever fills a dictionary in the order of its keys pays for no search and no shifting.
    if (entries.empty() || entries.back().key < key) {
        entries.emplace_back(std::string(key), std::move(value));
        return;
    }
    const auto place = lowerBound(entries, key);
    if (place->key == key)
        place->value = std::move(value);
    else
        entries.insert(place, Entry{std::string(key), std::move(value)});
}

void Dictionary::remove(std::string_view key)
{
    if (!contains(key))
        return;
    auto& entries = storage_.edit();
    entries.erase(lowerBound(entries, key));
}

void Dictionary::merge(const Dictionary& other)
{
    if (empty()) {
        *this = other;
        return;
    }
    const Dictionary kept = other; // `other` may be this very object
    for (const Entry& entry : kept)
        set(entry.key, entry.value);
}

std::string Dictionary::description() const
{
    std::string text = "{";
    for (const Entry& entry : *this) {
        text += text.size() > 1 ? "; " : " ";
        text += quoted(entry.key) + " = " + nestedDescription(entry.value);
    }
    return text + (empty() ? "}" : " }");
}

bool operator==(const Dictionary& left, const Dictionary& right)
{
    return left.storage_.sharesStorageWith(right.storage_) ||
           std::equal(left.begin(), left.end(), right.begin(), right.end());
}

std::optional<std::string> Value::string() const
{
    const auto* text = asString();
    return text ? std::optional(*text) : std::nullopt;
}

std::string Value::description() const
{
    switch (kind()) {
    case Kind::null: return "(null)";
    case Kind::boolean: return *asBool() ? "true" : "false";
    case Kind::number: return asNumber()->description();
    case Kind::string: return *asString();
    case Kind::data: return asData()->description();
    case Kind::date: return asDate()->description();
    case Kind::array: return asArray()->description();
    case Kind::dictionary: return asDictionary()->description();
    case Kind::object: break;
    }
    return "<object>";
}

std::uint32_t Value::hash() const
{
    Hash hash;
    hash.add(static_cast<std::uint32_t>(kind()));
    switch (kind()) {
    case Kind::null: break;
    case Kind::boolean: hash.add(*asBool() ? 1u : 0u); break;
    // Equal numbers of different kinds must hash alike, so the quantity counts and not the kind.
    case Kind::number: hash.add(Number(asNumber()->doubleValue()).description()); break;
    case Kind::string: hash.add(*asString()); break;
    case Kind::data: hash.add(asData()->text()); break;
    case Kind::date: hash.add(Number(asDate()->secondsSince1970()).description()); break;
    case Kind::array:
        for (const Value& value : *asArray())
            hash.add(value.hash());
        break;
    case Kind::dictionary:
        for (const auto& [key, value] : *asDictionary()) {
            hash.add(key);
            hash.add(value.hash());
        }
        break;
    case Kind::object: {
        const auto address = reinterpret_cast<std::uintptr_t>(std::get<8>(content_).pointer.get());
        hash.add(static_cast<std::uint32_t>(address));
        hash.add(static_cast<std::uint32_t>(static_cast<std::uint64_t>(address) >> 32));
        break;
    }
    }
    return hash.result();
}

bool operator==(const Value& left, const Value& right)
{
    if (left.kind() != right.kind())
        return false;
    switch (left.kind()) {
    case Value::Kind::null: return true;
    case Value::Kind::boolean: return *left.asBool() == *right.asBool();
    case Value::Kind::number: return *left.asNumber() == *right.asNumber();
    case Value::Kind::string: return *left.asString() == *right.asString();
    case Value::Kind::data: return *left.asData() == *right.asData();
    case Value::Kind::date: return *left.asDate() == *right.asDate();
    case Value::Kind::array: return *left.asArray() == *right.asArray();
    case Value::Kind::dictionary: return *left.asDictionary() == *right.asDictionary();
    case Value::Kind::object: break;
    }
    return std::get<8>(left.content_).pointer == std::get<8>(right.content_).pointer;
}

} // namespace dmf
