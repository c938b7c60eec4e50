#pragma once

#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include <dmf/ADMXMLElementImp.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/XmlReader.h>

namespace dmf::internal {
class NodePool;
}

/// Builds the tree of a document from its parts as a reader hands them over: elements with their attributes, and a text
/// node for each text. Its nodes are cheaper than those that are made one by one. Good for one document; text or an
/// end with no element open throws std::logic_error. Reentrant.
class DMF_EXPORT ADMXMLTreeBuilder final : public dmf::XmlReceiver {
public:
    ADMXMLTreeBuilder();
    ~ADMXMLTreeBuilder() override;
    ADMXMLTreeBuilder(const ADMXMLTreeBuilder&) = delete;
    ADMXMLTreeBuilder& operator=(const ADMXMLTreeBuilder&) = delete;

    void beginElement(std::string_view name, std::span<const Attribute> attributes) override;
    void text(std::string_view text) override;
    void endElement() override;

    /// The root element, handed over; empty before it has ended.
    [[nodiscard]] std::shared_ptr<ADMXMLElementImp> takeRoot() noexcept;

private:
    void wantOpen() const;

    const std::unique_ptr<dmf::internal::NodePool> pool_;
    std::vector<std::shared_ptr<ADMXMLElementImp>> open_;
    std::shared_ptr<ADMXMLElementImp> root_;
};
