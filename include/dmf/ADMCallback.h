#pragma once

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

/// What is to be done on a client's run loop once an operation has come to its end there (see ADMOperationQueue).
class DMF_EXPORT ADMCallback {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMCallback();

    /// Called once, on the thread of the run loop. What it throws reaches whoever turns the run loop.
    virtual void performCallback() = 0;
};
