#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <typeindex>
#include <variant>
#include <vector>

#include <dmf/platform/Data.h>
#include <dmf/platform/Date.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/SharedList.h>

namespace dmf {

class Value;

/// A number that remembers whether it was given as a signed integer, an unsigned integer or a real.
/// Numbers of different kinds are equal when they stand for the same quantity.
class DMF_EXPORT Number {
public:
    enum class Kind : std::uint8_t { signedInteger, unsignedInteger, real };

    constexpr Number() noexcept : signed_(0) {}
    template <std::signed_integral T>
    constexpr Number(T value) noexcept : kind_(Kind::signedInteger), signed_(value)
    {
    }
    template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>) constexpr Number(T value) noexcept : kind_(Kind::unsignedInteger), unsigned_(value)
    {
    }
    constexpr Number(double value) noexcept : kind_(Kind::real), real_(value) {}

    [[nodiscard]] constexpr Kind kind() const noexcept { return kind_; }

    /// Conversions truncate fractions towards zero and stop at the nearest limit of the wanted type; NaN gives 0.
    [[nodiscard]] std::int64_t int64Value() const noexcept;
    [[nodiscard]] std::uint64_t uint64Value() const noexcept;
    [[nodiscard]] std::int32_t int32Value() const noexcept;
    [[nodiscard]] std::uint32_t uint32Value() const noexcept;
    [[nodiscard]] double doubleValue() const noexcept;
    [[nodiscard]] float floatValue() const noexcept { return static_cast<float>(doubleValue()); }

    /// The shortest decimal text that reads back as the same number; never in the host's locale.
    [[nodiscard]] std::string description() const;

    friend DMF_EXPORT bool operator==(const Number& left, const Number& right) noexcept;

private:
    Kind kind_ = Kind::signedInteger;
    union {
        std::int64_t signed_;
        std::uint64_t unsigned_;
        double real_;
    };
};

/// A list of values. Copies share their storage until one of them is changed. Reentrant.
class DMF_EXPORT Array {
public:
    Array() = default;
    Array(std::initializer_list<Value> values);
    explicit Array(std::vector<Value> values);
    [[nodiscard]] static Array ofStrings(const std::vector<std::string>& strings);

    [[nodiscard]] std::size_t size() const noexcept;
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }
    /// Throws std::out_of_range past the end.
    [[nodiscard]] const Value& at(std::size_t index) const;
    [[nodiscard]] const Value* begin() const noexcept;
    [[nodiscard]] const Value* end() const noexcept;
    [[nodiscard]] bool contains(const Value& value) const;

    void reserve(std::size_t count);
    void append(Value value);
    void removeAt(std::size_t index);

    [[nodiscard]] std::string description() const;
    friend DMF_EXPORT bool operator==(const Array& left, const Array& right);

private:
    SharedList<Value> storage_;
};

/// Values by key, the keys sorted by their bytes. Holds no null values: storing one changes nothing, so that a null
/// look-up result always means "no entry". Copies share their storage until one of them is changed. Reentrant.
class DMF_EXPORT Dictionary {
public:
    struct Entry;

    Dictionary() = default;
    Dictionary(std::initializer_list<Entry> entries);
    /// Takes the entries over in one go, in any order; of several with one key the last counts.
    explicit Dictionary(std::vector<Entry> entries);

    [[nodiscard]] std::size_t size() const noexcept;
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }
    [[nodiscard]] const Entry* begin() const noexcept;
    [[nodiscard]] const Entry* end() const noexcept;

    /// The value under `key`, or a null value.
    [[nodiscard]] const Value& operator[](std::string_view key) const noexcept;
    /// The value under `key`, or a null pointer; valid until this object is changed.
    [[nodiscard]] const Value* find(std::string_view key) const noexcept;
    [[nodiscard]] bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
    /// The string under `key`; nothing when there is no entry or it is not a string.
    [[nodiscard]] std::optional<std::string> string(std::string_view key) const;

    void reserve(std::size_t count);
    void set(std::string_view key, Value value);
    /// The same, made in its place.
    void set(std::string_view key, std::same_as<std::string_view> auto text) { setText(key, text); }
    void remove(std::string_view key);
    /// Stores every entry of `other`; its values replace earlier ones.
    void merge(const Dictionary& other);

    [[nodiscard]] std::string description() const;
    friend DMF_EXPORT bool operator==(const Dictionary& left, const Dictionary& right);

private:
    void setText(std::string_view key, std::string_view text);
    template <class Content>
    void put(std::string_view key, Content&& content);
    /// Where `key` is or would be.
    [[nodiscard]] std::size_t lowerBound(std::string_view key) const noexcept;

    SharedList<Entry> storage_;
};

/// One value of any kind that property lists and messages are made of: nothing, a boolean, a number, a string (UTF-8),
/// bytes, a date, an array, a dictionary, or a shared object of the program. Cheap to copy and to move. Reentrant.
class DMF_EXPORT Value {
public:
    enum class Kind : std::uint8_t { null, boolean, number, string, data, date, array, dictionary, object };

    Value() noexcept = default;
    Value(std::nullptr_t) noexcept {}
    Value(std::same_as<bool> auto value) noexcept : content_(std::in_place_index<1>, value) {}
    template <class T>
    requires((std::integral<T> && !std::same_as<T, bool>) || std::floating_point<T>) Value(T value)
    noexcept : content_(std::in_place_index<2>, value) {}
    Value(Number value) noexcept : content_(std::in_place_index<2>, value) {}
    Value(const char* text) : content_(std::in_place_index<3>, text) {}
    Value(std::string text) noexcept : content_(std::in_place_index<3>, std::move(text)) {}
    Value(std::string_view text) : content_(std::in_place_index<3>, text) {}
    Value(std::optional<std::string> text)
    {
        if (text)
            content_.emplace<3>(*std::move(text));
    }
    Value(Data data) noexcept : content_(std::in_place_index<4>, std::move(data)) {}
    Value(Date date) noexcept : content_(std::in_place_index<5>, date) {}
    Value(Array array) noexcept : content_(std::in_place_index<6>, std::move(array)) {}
    Value(Dictionary dictionary) noexcept : content_(std::in_place_index<7>, std::move(dictionary)) {}

    /// A shared object; it is handed back by `objectAs` of exactly the type T under which it was stored.
    /// A null pointer gives a null value.
    template <class T>
    [[nodiscard]] static Value ofObject(std::shared_ptr<T> object)
    {
        Value value;
        if (object)
            value.content_.emplace<8>(Object{std::move(object), typeid(T)});
        return value;
    }

    [[nodiscard]] Kind kind() const noexcept { return static_cast<Kind>(content_.index()); }
    [[nodiscard]] bool isNull() const noexcept { return kind() == Kind::null; }

    /// The content as the named kind, or a null pointer for any other kind; valid until this object is changed.
    [[nodiscard]] const bool* asBool() const noexcept { return std::get_if<1>(&content_); }
    [[nodiscard]] const Number* asNumber() const noexcept { return std::get_if<2>(&content_); }
    [[nodiscard]] const std::string* asString() const noexcept { return std::get_if<3>(&content_); }
    [[nodiscard]] const Data* asData() const noexcept { return std::get_if<4>(&content_); }
    [[nodiscard]] const Date* asDate() const noexcept { return std::get_if<5>(&content_); }
    [[nodiscard]] const Array* asArray() const noexcept { return std::get_if<6>(&content_); }
    [[nodiscard]] const Dictionary* asDictionary() const noexcept { return std::get_if<7>(&content_); }

    /// A copy of the string, or nothing for any other kind.
    [[nodiscard]] std::optional<std::string> string() const;

    /// The object stored as exactly a T, else an empty pointer.
    template <class T>
    [[nodiscard]] std::shared_ptr<T> objectAs() const
    {
        const auto* object = std::get_if<8>(&content_);
        return object && object->type == typeid(T) ? std::static_pointer_cast<T>(object->pointer) : nullptr;
    }

    /// A text for people and logs, the same in every locale; "(null)" for null, strings as they are at top level.
    [[nodiscard]] std::string description() const;
    /// The same for equal values within one version of the library; objects hash by identity.
    [[nodiscard]] std::uint32_t hash() const;

    /// Equal kinds with equal contents; numbers compare by quantity, objects by identity.
    friend DMF_EXPORT bool operator==(const Value& left, const Value& right);

private:
    struct Object {
        std::shared_ptr<void> pointer;
        std::type_index type;
    };

    std::variant<std::monostate, bool, Number, std::string, Data, Date, Array, Dictionary, Object> content_;
};

struct Dictionary::Entry {
    std::string key;
    Value value;
    friend bool operator==(const Entry&, const Entry&) = default;
};

} // namespace dmf
