#pragma once

#include <memory>
#include <string_view>

#include <dmf/platform/Class.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

/// Supplies the implementor classes of one family of devices by interface name, in place of the plug-in manager.
/// Mock plug-ins implement it, so that a whole device stack can run under a scheme of its own. Thread-safe.
class DMF_EXPORT ADMIOProvider {
public:
    using Factory = std::shared_ptr<ADMIOProvider>();
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMIOProvider();

    /// The class that implements the interface of that name ("IDMDevice", "ADMDuplexDataChannel", ...), or empty.
    [[nodiscard]] virtual std::shared_ptr<const dmf::Class>
    implementorClassForProtocolWithName(std::string_view name) const = 0;
};
