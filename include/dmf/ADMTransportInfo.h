#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>

class ADMInfo;

/// How a model is reached: its sets of channels. Immutable; thread-safe.
class DMF_EXPORT ADMTransportInfo {
public:
    /// Over a "Transport" node; empty without one.
    [[nodiscard]] static std::shared_ptr<ADMTransportInfo> initWithInfo(std::shared_ptr<ADMInfo> info);

    /// The entries of the channel set of that name: a connection type, or one of the names "BiDiChannel", "Dot4",
    /// "Stub" and "USBExclude".
    [[nodiscard]] std::vector<std::shared_ptr<ADMInfo>> ioChannelInfos(std::string_view name) const;
    [[nodiscard]] std::vector<std::shared_ptr<ADMInfo>> dot4Locations() const;

    /// What one channel entry says. A number that is absent is the one told, and so is one that is no number but for
    /// that 0 stands for unreadable text; texts that are absent are nothing. A null entry says nothing.
    [[nodiscard]] static std::int32_t profileUUID(const std::shared_ptr<ADMInfo>& channel); ///< 0
    [[nodiscard]] static std::optional<std::string> dnssdService(const std::shared_ptr<ADMInfo>& channel);
    [[nodiscard]] static std::optional<std::string> ianaService(const std::shared_ptr<ADMInfo>& channel);
    [[nodiscard]] static std::optional<std::string> channel(const std::shared_ptr<ADMInfo>& channel);
    [[nodiscard]] static std::optional<std::string> protocol(const std::shared_ptr<ADMInfo>& channel);
    [[nodiscard]] static std::string portOverride(const std::shared_ptr<ADMInfo>& channel);  ///< "never"
    [[nodiscard]] static std::int32_t port(const std::shared_ptr<ADMInfo>& channel);         ///< 0
    [[nodiscard]] static std::int32_t usbAlternate(const std::shared_ptr<ADMInfo>& channel); ///< -1
    [[nodiscard]] static std::int32_t usbProtocol(const std::shared_ptr<ADMInfo>& channel);  ///< 0
    [[nodiscard]] static std::int32_t usbSubclass(const std::shared_ptr<ADMInfo>& channel);  ///< 0
    [[nodiscard]] static std::int32_t usbClass(const std::shared_ptr<ADMInfo>& channel);     ///< 0

private:
    explicit ADMTransportInfo(std::shared_ptr<ADMInfo> info);
    const std::shared_ptr<ADMInfo> info_;
};
