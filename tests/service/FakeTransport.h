#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include <dmf/ADMIOProvider.h>

#include "support/FakeDevice.h"

/// A transport whose devices come from a function of the test, which is told the description and how often it was
/// asked.
class FakeTransport final : public ADMIOProvider {
public:
    using Locate = std::function<std::shared_ptr<IDMDevice>(
        const dmf::Dictionary& spec, const std::shared_ptr<IDMDeviceHandler>& handler, int attempt)>;
    explicit FakeTransport(Locate locate) : state_(std::make_shared<State>())
    {
        state_->locate = std::move(locate);
        auto made = std::make_shared<dmf::Class>("FakeDevice", &anchor_);
        made->implements<IDMDevice>(
            [state = state_](const dmf::Dictionary& spec, std::shared_ptr<IDMDeviceHandler> handler) {
                return state->locate(spec, handler, ++state->attempts);
            });
        deviceClass_ = std::move(made);
    }
    /// A transport that always finds that device.
    explicit FakeTransport(const std::shared_ptr<IDMDevice>& device)
        : FakeTransport([device](const auto&, const auto&, int) { return device; })
    {
    }
    int attempts() const { return state_->attempts; }

    std::shared_ptr<const dmf::Class> implementorClassForProtocolWithName(std::string_view name) const override
    {
        return name == "IDMDevice" ? deviceClass_ : nullptr;
    }

private:
    struct State {
        Locate locate;
        std::atomic<int> attempts{0};
    };
    static inline const char anchor_ = 0;
    const std::shared_ptr<State> state_;
    std::shared_ptr<const dmf::Class> deviceClass_;
};
