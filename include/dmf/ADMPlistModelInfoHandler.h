#pragma once

#include <memory>
#include <mutex>
#include <string>

#include <dmf/ADMModelInfoHandler.h>
#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

/// A model file in the form of a property list. Thread-safe.
class DMF_EXPORT ADMPlistModelInfoHandler final : public ADMModelInfoHandler {
public:
    /// See ADMModelInfoHandlerInitializer.
    [[nodiscard]] static std::shared_ptr<ADMPlistModelInfoHandler> initWithData(dmf::Data data, std::string table);
    ~ADMPlistModelInfoHandler() override;

    /// Contents that do not parse give a root without a value, and a line in the log. Empty only while there is no
    /// memory, which the log tells and the next call tries again.
    [[nodiscard]] std::shared_ptr<ADMInfo> info() override;

    /// The child's dictionary with what it lacks taken from the parent's: dictionaries that both have are merged by
    /// this same rule, anything else of the child wins. Then the keys that its "removedKeys" lists are taken out,
    /// inherited ones included, and "removedKeys" with them.
    [[nodiscard]] static dmf::Dictionary mergeModelInfo(const dmf::Dictionary& modelInfo,
                                                        const dmf::Dictionary& withModelInfo);

private:
    ADMPlistModelInfoHandler(dmf::Data data, std::string table);
    [[nodiscard]] dmf::Value mergedValue() const;

    const std::string table_;
    std::mutex lock_;
    dmf::Data data_;                // guarded by lock_; gone once it has been parsed
    std::shared_ptr<ADMInfo> root_; // guarded by lock_
};
