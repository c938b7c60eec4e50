#pragma once

#include <memory>
#include <string>

#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

class ADMInfo;

/// One model file: its contents with everything that it inherits from its parent files. Thread-safe.
class DMF_EXPORT ADMModelInfoHandler {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMModelInfoHandler();

    /// The root of the file's merged tree; the same one every time. The first call parses the file and asks the shared
    /// model info manager for the parent file, and may block while that is read; calls on other threads wait for it.
    /// Trees may be read by several threads, and must not be changed.
    [[nodiscard]] virtual std::shared_ptr<ADMInfo> info() = 0;
};

/// How a handler is made.
class DMF_EXPORT ADMModelInfoHandlerInitializer {
public:
    /// `initWithData`: a handler for deciphered contents and the table in which the parent files are looked for; empty
    /// when there is no data.
    using Factory = std::shared_ptr<ADMModelInfoHandler>(dmf::Data data, std::string table);
    [[nodiscard]] static const dmf::Protocol& protocol();
};
