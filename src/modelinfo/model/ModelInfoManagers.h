#pragma once

#include <memory>

#include <dmf/ADMModelInfoManager.h>

namespace dmf::internal {

/// Makes managers. A program has the shared one; tests and benchmarks need one that has read nothing yet.
struct ModelInfoManagers {
    [[nodiscard]] static std::shared_ptr<ADMPrivateModelInfoManager> make()
    {
        return std::shared_ptr<ADMPrivateModelInfoManager>(new ADMPrivateModelInfoManager);
    }
};

} // namespace dmf::internal
