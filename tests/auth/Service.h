#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "support/FakeServiceInfo.h"

/// A service that has a name for the keyring, or has not.
class NamedService : public FakeServiceInfo {
public:
    explicit NamedService(std::optional<std::string> uri, std::optional<std::string> modelName = std::nullopt)
        : uri_(std::move(uri)), modelName_(std::move(modelName))
    {
    }
    std::optional<std::string> uri() override { return uri_; }
    std::optional<std::string> modelName() override { return modelName_; }

private:
    const std::optional<std::string> uri_, modelName_;
};

inline std::shared_ptr<NamedService> service(std::optional<std::string> uri,
                                             std::optional<std::string> modelName = std::nullopt)
{
    return std::make_shared<NamedService>(std::move(uri), std::move(modelName));
}
