#pragma once

#include <dmf/IDMProtectionSpace.h>

/// The library's protection space. Reentrant.
class DMF_EXPORT ADMProtectionSpaceImp final : public IDMProtectionSpace {
public:
    explicit ADMProtectionSpaceImp(std::int32_t authenticationType) noexcept : authenticationType_(authenticationType)
    {
    }
    ~ADMProtectionSpaceImp() override;

    [[nodiscard]] std::int32_t authenticationType() const override { return authenticationType_; }
    [[nodiscard]] std::optional<std::string> realm() const override { return realm_; }
    void setRealm(std::optional<std::string> realm) override;

private:
    std::int32_t authenticationType_;
    std::optional<std::string> realm_;
};
