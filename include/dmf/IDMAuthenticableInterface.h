#pragma once

#include <memory>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

class IDMAuthenticationContext;

/// A functional service that may need credentials to do its work.
class DMF_EXPORT IDMAuthenticableInterface {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMAuthenticableInterface();

    /// Where the client puts the credentials, and the service's operations find them.
    [[nodiscard]] virtual std::shared_ptr<IDMAuthenticationContext> authenticationContext() = 0;
};
