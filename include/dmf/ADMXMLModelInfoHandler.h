#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <dmf/ADMModelInfoHandler.h>
#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>

class ADMXMLElement;
class ADMXMLNode;

/// A model file in the form of an XML document. Thread-safe.
///
/// An element stands for the same thing as an element of the parent file when both have the same name and attributes.
/// Records (elements whose children all differ) merge deeply; lists are extended by the parent's items, behind their
/// own. The attribute override="true" keeps everything inherited out of an element.
class DMF_EXPORT ADMXMLModelInfoHandler final : public ADMModelInfoHandler {
public:
    /// See ADMModelInfoHandlerInitializer.
    [[nodiscard]] static std::shared_ptr<ADMXMLModelInfoHandler> initWithData(dmf::Data data, std::string table);
    ~ADMXMLModelInfoHandler() override;

    /// Empty when the contents do not parse, which is tried once and told in the log.
    [[nodiscard]] std::shared_ptr<ADMInfo> info() override;

    /// Brings what `withXMLElement`, from the parent file, has into `element`, from the child file, and hands that
    /// back. The nodes taken over are shared with the parent's tree, which stays as it is.
    static std::shared_ptr<ADMXMLElement> mergeXMLElement(std::shared_ptr<ADMXMLElement> element,
                                                          const std::shared_ptr<ADMXMLElement>& withXMLElement);
    /// Appends the nodes as they are, unless the element overrides, and hands the element back.
    static std::shared_ptr<ADMXMLElement> addXMLElements(const std::vector<std::shared_ptr<ADMXMLNode>>& elements,
                                                         std::shared_ptr<ADMXMLElement> toXMLElement);

private:
    ADMXMLModelInfoHandler(dmf::Data data, std::string table);
    [[nodiscard]] std::shared_ptr<ADMInfo> mergedRoot(const dmf::Data& data) const;

    const std::string table_;
    std::mutex lock_;
    std::optional<dmf::Data> data_; // guarded by lock_; gone once it has been parsed
    std::shared_ptr<ADMInfo> root_; // guarded by lock_
};
