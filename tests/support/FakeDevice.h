#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include <dmf/IDMDevice.h>

/// A device that answers as the test scripts it; by itself it is there and says nothing.
class FakeDevice : public IDMDevice {
public:
    explicit FakeDevice(dmf::Dictionary said = {}) : info(std::move(said)) {}
    bool isReachable() override { return reachable; }
    dmf::Dictionary retrieveParameters(const dmf::Dictionary& wanted,
                                       std::shared_ptr<IDMDeviceHandler> handler) override
    {
        if (onRetrieve)
            onRetrieve(wanted, std::move(handler));
        return info;
    }

    dmf::Dictionary info;
    std::atomic<bool> reachable{true};
    std::function<void(const dmf::Dictionary&, std::shared_ptr<IDMDeviceHandler>)> onRetrieve;
};
