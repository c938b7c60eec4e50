#pragma once

#include <memory>

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

class ADMInfo;

/// Whether a device's report fits an alert as the model information describes it: the report has at least as many
/// entries as the alert has children, and for each child the entry under its "name" has the child's text. Entries may
/// be strings, numbers or info nodes (dmf::Value::ofObject<ADMInfo>). No alert fits nothing. Thread-safe.
[[nodiscard]] DMF_EXPORT bool com_ql_dmf_matchesModelInfoAlert(const dmf::Dictionary& receiver,
                                                               const std::shared_ptr<ADMInfo>& alert);
