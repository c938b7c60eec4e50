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
class ADMXMLParser;

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

    /// Empty when the contents do not parse, which is tried once and told in the log; and while there is no parser, or
    /// no memory, which the log tells as well and the next call tries again.
    [[nodiscard]] std::shared_ptr<ADMInfo> info() override;

    /// Neither may be null, else nothing happens. Brings what `withXMLElement`, from the parent file, has into
    /// `element`, from the child file, and hands that back. The nodes taken over are shared with the parent's tree,
    /// which stays as it is. Linear in what both have.
    static std::shared_ptr<ADMXMLElement> mergeXMLElement(std::shared_ptr<ADMXMLElement> element,
                                                          const std::shared_ptr<ADMXMLElement>& withXMLElement);
    /// Appends the nodes as they are, null ones left out, unless the element overrides, and hands the element back.
    static std::shared_ptr<ADMXMLElement> addXMLElements(const std::vector<std::shared_ptr<ADMXMLNode>>& elements,
                                                         std::shared_ptr<ADMXMLElement> toXMLElement);

private:
    ADMXMLModelInfoHandler(dmf::Data data, std::string table);
    [[nodiscard]] bool isUnread();
    [[nodiscard]] std::shared_ptr<ADMInfo> mergedRoot(ADMXMLParser& parser, const dmf::Data& data) const;

    const std::string table_;
    std::mutex lock_;
    std::optional<dmf::Data> data_; // guarded by lock_; gone once there is a verdict on it
    std::shared_ptr<ADMInfo> root_; // guarded by lock_
};
