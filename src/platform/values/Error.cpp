#include <dmf/platform/Error.h>

namespace dmf {

Error::Error(std::string domain, std::int64_t code, Dictionary userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo))
{
}

std::string Error::description() const
{
    if (domain_.empty())
        return "no error";
    std::string text = domain_ + " " + std::to_string(code_);
    return userInfo_.empty() ? text : text + " " + userInfo_.description();
}

UnrecognizedOperation::UnrecognizedOperation(std::string_view className, std::string_view operation)
    : std::logic_error(std::string(className) + " does not implement " + std::string(operation))
{
}

UnrecognizedOperation::~UnrecognizedOperation() = default;

} // namespace dmf
