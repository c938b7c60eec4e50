#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMModelInfo.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/NotificationCenter.h>
#include <dmf/platform/Value.h>

class ADMInfo;

/// Answers from the model's tree in each table, which it finds through the shared model info manager and keeps until
/// the table gets another location. Thread-safe.
class DMF_EXPORT ADMModelInfoImp final : public ADMCoreModelInfo {
public:
    explicit ADMModelInfoImp(std::string_view modelName);
    ~ADMModelInfoImp() override;
    ADMModelInfoImp(const ADMModelInfoImp&) = delete;
    ADMModelInfoImp& operator=(const ADMModelInfoImp&) = delete;

    [[nodiscard]] std::string modelName() const override;
    [[nodiscard]] std::optional<std::string> vendorName() override;
    [[nodiscard]] std::optional<std::string> familyName() override;
    [[nodiscard]] std::optional<std::string> pathToIcon() override;
    [[nodiscard]] std::optional<std::string> utilityName() override;
    [[nodiscard]] std::optional<std::string> utilitySignature() override;
    [[nodiscard]] std::optional<std::string> modelCodeName() override;
    [[nodiscard]] std::optional<std::string> modelId() override;
    [[nodiscard]] std::vector<std::shared_ptr<ADMInfo>> infoForPath(std::string_view path,
                                                                    std::string_view table) override;
    [[nodiscard]] dmf::Value valueForInfoPath(std::string_view path, std::string_view table) override;

    [[nodiscard]] std::shared_ptr<ADMTransportInfo> transportInfo() override;
    [[nodiscard]] std::vector<std::string>
    availableFunctionalInterfacesForServiceName(std::string_view deviceClassName) override;
    [[nodiscard]] std::vector<std::string>
    availableProtocolsForFunctionalInterface(std::string_view interfaceName) override;
    [[nodiscard]] std::shared_ptr<ADMFunctionalInfo> functionalInfo(std::string_view interfaceName,
                                                                    std::string_view connectionType) override;

    /// The record of descriptive texts.
    [[nodiscard]] std::shared_ptr<ADMInfo> information();
    /// The node of an interface by the last two parts of its dotted name; empty for a name without a dot.
    [[nodiscard]] std::shared_ptr<ADMInfo> functionalInterfaceInfoWithName(std::string_view name);
    /// The root of the model's tree in `table`: of the first that exists of the model's own file, its family's (in the
    /// library's own table), the table's default. Empty, with a line in the log, when there is none; that is not
    /// remembered. The library's own table answers to kDMFTableName itself only.
    [[nodiscard]] std::shared_ptr<ADMInfo> infoFromTable(std::string_view table);
    /// Forgets the tree of the table that the notification names.
    void tableLocationDidChange(const dmf::Notification& notification);

    /// The name by which a model's files are called: without the maker's short name and a blank ("ql "), without
    /// " (" and what follows, without "_BT" and what follows; each searched for once, whatever the letter case.
    [[nodiscard]] static std::string normalizeModelName(std::string_view name);

private:
    struct State;
    [[nodiscard]] std::optional<std::string> informationText(std::string_view key);

    const std::shared_ptr<State> state_; // shared with the observer, which can run while this object goes
    const dmf::NotificationCenter::Observation observation_;
};
