#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Data.h>
#include <dmf/platform/Value.h>

class ADMCoreModelInfo;

namespace dmf::internal {

/// What is known of a service: its properties by their keys, its state, and what the database says of its model. Knows
/// nothing of devices and never blocks. Thread-safe.
class ServiceProperties {
public:
    /// A copy of all properties.
    [[nodiscard]] Dictionary all() const;
    /// The property, if it is a text.
    [[nodiscard]] std::optional<std::string> text(std::string_view key) const;
    /// The connection parameters; empty where none are known.
    [[nodiscard]] Dictionary parameters() const;
    /// Adds the properties; new values win.
    void merge(const Dictionary& properties);
    /// The same with what a URI says; it does not replace the service's URI and device class.
    void mergeComponents(Dictionary components);
    /// Adds what the kept URI says where no connection parameters are known.
    void readParametersFromURI();

    /// Keeps the text unless one is kept; gives the kept one.
    std::optional<std::string> keepFirst(std::string_view key, std::optional<std::string> text);
    /// Each ignores a missing text. A new model name forgets the model's entry.
    void setVendorName(std::optional<std::string> name);
    void setModelName(std::optional<std::string> name);
    void setDeviceName(std::optional<std::string> name);
    /// Merges the connection parameters; new values win.
    void setParameters(const Dictionary& parameters);

    /// The low three bits.
    [[nodiscard]] std::uint32_t state() const;
    void setState(std::uint32_t state);
    /// Takes over what a device said of itself if its vendor is accepted (state 1), otherwise nothing (state 2).
    void setResolved(const Dictionary& spec);
    [[nodiscard]] static bool namesAcceptedVendor(const Dictionary& spec);

    [[nodiscard]] std::shared_ptr<ADMCoreModelInfo> modelInfo() const;
    void setModelInfo(std::shared_ptr<ADMCoreModelInfo> modelInfo);
    /// Keeps the entry of the model with that name, if none is kept and the service is still of that model.
    void keepModelInfo(const std::shared_ptr<ADMCoreModelInfo>& modelInfo, std::string_view modelName);

    /// The properties as bytes; nothing when one is of a kind that has no archive form.
    [[nodiscard]] std::optional<Data> archive() const;
    /// Replaces the properties by those of the archive, where what the URI says wins; bytes
    /// that are none change nothing.
    void readArchive(const Data& data);

private:
    bool setText(std::string_view key, std::optional<std::string> text);
    void setSpec(const Dictionary& spec);

    mutable std::recursive_mutex lock_; // guards all below; nothing else is locked while it is held
    Dictionary container_;
    std::uint32_t state_ = 0;
    std::shared_ptr<ADMCoreModelInfo> modelInfo_;
};

} // namespace dmf::internal
