#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

namespace dmf {

/// What went wrong: a domain that owns the code, the code, and further facts by key. An error object without a domain
/// stands for "no error", so a slot can be tested. Reentrant.
class DMF_EXPORT Error {
public:
    Error() = default;
    Error(std::string domain, std::int64_t code, Dictionary userInfo = {});

    [[nodiscard]] explicit operator bool() const noexcept { return !domain_.empty(); }
    [[nodiscard]] const std::string& domain() const noexcept { return domain_; }
    [[nodiscard]] std::int64_t code() const noexcept { return code_; }
    [[nodiscard]] const Dictionary& userInfo() const noexcept { return userInfo_; }
    [[nodiscard]] std::string description() const;

    friend bool operator==(const Error&, const Error&) = default;

private:
    std::string domain_;
    std::int64_t code_ = 0;
    Dictionary userInfo_;
};

/// Thrown by an operation that a base class names but leaves to its subclasses: a programming error, never a report.
class DMF_EXPORT UnrecognizedOperation : public std::logic_error {
public:
    UnrecognizedOperation(std::string_view className, std::string_view operation);
    ~UnrecognizedOperation() override;
};

} // namespace dmf
