#include <dmf/platform/Value.h>

#include <dmf/platform/Secret.h>

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

void checkIndex(std::size_t index, std::size_t size)
{
    if (index >= size)
        throw std::out_of_range("array index " + std::to_string(index) + " beyond " + std::to_string(size));
}

/// Short texts lie in the elements themselves and stay behind when they are moved. Some are secrets, whose owners can
/// wipe the elements only, so nothing is left where they were.
template <class T>
void moveInto(SharedList<T>& list, std::vector<T>& elements)
{
    for (T& element : elements)
        list.append(std::move(element));
    const std::size_t size = elements.size();
    elements.clear();
    if (size > 0)
        Secret::wipe(elements.data(), size * sizeof(T));
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
    /// By the quantity, since equal numbers of different kinds must hash alike; and there are two zeros that are equal.
    void add(double quantity) { add(Number(quantity == 0 ? 0.0 : quantity).description()); }
    [[nodiscard]] std::uint32_t result() const noexcept { return state_; }

private:
    std::uint32_t state_ = 2166136261u;
};

} // namespace

Array::Array(std::initializer_list<Value> values)
{
    storage_.reserve(values.size());
    for (const Value& value : values)
        storage_.append(Value(value));
}

Array::Array(std::vector<Value> values)
{
    storage_.reserve(values.size());
    moveInto(storage_, values);
}

Array Array::ofStrings(const std::vector<std::string>& strings)
{
    Array array;
    array.reserve(strings.size());
    for (const std::string& text : strings)
        array.append(text);
    return array;
}

std::size_t Array::size() const noexcept
{
    return storage_.size();
}

const Value& Array::at(std::size_t index) const
{
    checkIndex(index, size());
    return begin()[index];
}

const Value* Array::begin() const noexcept
{
    return storage_.begin();
}

const Value* Array::end() const noexcept
{
    return storage_.end();
}

bool Array::contains(const Value& value) const
{
    return std::find(begin(), end(), value) != end();
}

void Array::reserve(std::size_t count)
{
    storage_.reserve(count);
}

void Array::append(Value value)
{
    storage_.append(std::move(value));
}

void Array::removeAt(std::size_t index)
{
    checkIndex(index, size());
    storage_.erase(index);
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

Dictionary::Dictionary(std::initializer_list<Entry> entries)
{
    storage_.reserve(entries.size());
    for (const Entry& entry : entries)
        set(entry.key, entry.value);
}

Dictionary::Dictionary(std::vector<Entry> entries)
{
    std::erase_if(entries, [](const Entry& entry) { return entry.value.isNull(); });
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
    storage_.reserve(entries.size());
    moveInto(storage_, entries);
}

std::size_t Dictionary::size() const noexcept
{
    return storage_.size();
}

const Dictionary::Entry* Dictionary::begin() const noexcept
{
    return storage_.begin();
}

const Dictionary::Entry* Dictionary::end() const noexcept
{
    return storage_.end();
}

std::size_t Dictionary::lowerBound(std::string_view key) const noexcept
{
    const auto comesBefore = [](const Entry& entry, std::string_view wanted) { return entry.key < wanted; };
    return static_cast<std::size_t>(std::lower_bound(begin(), end(), key, comesBefore) - begin());
}

const Value& Dictionary::operator[](std::string_view key) const noexcept
{
    const Value* value = find(key);
    return value ? *value : nullValue();
}

const Value* Dictionary::find(std::string_view key) const noexcept
{
    const Entry* const place = begin() + lowerBound(key);
    return place != end() && place->key == key ? &place->value : nullptr;
}

std::optional<std::string> Dictionary::string(std::string_view key) const
{
    return (*this)[key].string();
}

void Dictionary::reserve(std::size_t count)
{
    storage_.reserve(count);
}

template <class Content>
void Dictionary::put(std::string_view key, Content&& content)
{
    const auto made = [&] { return Entry{std::string(key), Value(std::forward<Content>(content))}; };
    // Whoever fills a dictionary in the order of its keys pays for no search and no shifting.
    if (empty() || end()[-1].key < key)
        return storage_.appendMade(made);
    const std::size_t place = lowerBound(key);
    if (begin()[place].key == key)
        storage_.edit()[place].value = Value(std::forward<Content>(content));
    else
        storage_.insert(place, made());
}

void Dictionary::set(std::string_view key, Value value)
{
    if (!value.isNull())
        put(key, std::move(value));
}

void Dictionary::setText(std::string_view key, std::string_view text)
{
    put(key, text);
}

void Dictionary::remove(std::string_view key)
{
    if (contains(key))
        storage_.erase(lowerBound(key));
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
    case Kind::number: hash.add(asNumber()->doubleValue()); break;
    case Kind::string: hash.add(*asString()); break;
    case Kind::data: hash.add(asData()->text()); break;
    case Kind::date: hash.add(asDate()->secondsSince1970()); break;
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
