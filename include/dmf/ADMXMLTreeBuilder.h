#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string_view>
#include <unordered_map>
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
    struct Open {
        std::shared_ptr<ADMXMLElementImp> element;
        std::size_t children; ///< where its own begin among those that wait
    };
    void wantOpen() const;
    void makeHeldText();
    [[nodiscard]] const dmf::internal::SharedText& sharedName(std::string_view name);
    [[nodiscard]] dmf::Dictionary dictionaryOf(std::span<const Attribute> attributes);
    [[nodiscard]] const dmf::Dictionary& sharedAttribute(const Attribute& attribute);

    const std::unique_ptr<dmf::internal::NodePool> pool_;
    std::vector<Open> open_;
    /// Children of the elements that are open; each gets its own in one go when it ends.
    std::vector<std::shared_ptr<ADMXMLNodeImp>> waiting_;
    std::unordered_map<std::string_view, dmf::internal::SharedText> names_; // documents have few different ones
    std::array<dmf::Dictionary, 128> seen_;                                 // single attributes of late
    std::vector<Attribute> sorted_;
    std::shared_ptr<ADMXMLElementImp> root_;
};
