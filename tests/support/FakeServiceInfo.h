#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <dmf/ADMIOProvider.h>
#include <dmf/ADMServiceInfo.h>

#include "FakeDevice.h"

/// A service info that says what the test gave it and does nothing by itself.
class FakeServiceInfo : public ADMServiceInfo {
public:
    explicit FakeServiceInfo(std::shared_ptr<IDMDevice> device = std::make_shared<FakeDevice>(),
                             std::string type = "IP")
        : device_(std::move(device)), type_(std::move(type))
    {
    }
    std::function<std::shared_ptr<IDMDevice>()> onDevice;
    std::shared_ptr<ADMIOProvider> provider;

    std::shared_ptr<IDMDevice> device() override { return onDevice ? onDevice() : device_; }
    void setDevice(std::shared_ptr<IDMDevice> device) override { device_ = std::move(device); }
    std::shared_ptr<IDMDevice> locateDeviceWithHandler(std::shared_ptr<IDMDeviceHandler>) override { return device_; }
    bool isReachable() override { return device_ != nullptr; }
    std::shared_ptr<ADMIOProvider> ioProvider() const override { return provider; }
    std::optional<std::string> connectionType() const override { return type_; }
    dmf::Dictionary connectionParams() const override { return params_; }
    std::optional<std::string> uri() override { return "fake://device"; }

    std::optional<std::string> vendorName() override { return std::nullopt; }
    std::optional<std::string> modelName() override { return std::nullopt; }
    std::optional<std::string> deviceName() override { return std::nullopt; }
    std::shared_ptr<ADMCoreModelInfo> modelInfo() override { return nullptr; }
    bool isEqualToDeviceInfo(ADMDeviceInfo& other) override { return &other == this; }
    void setVendorName(std::optional<std::string>) override {}
    void setModelName(std::optional<std::string>) override {}
    void setDeviceName(std::optional<std::string>) override {}
    void setConnectionParams(const dmf::Dictionary& params) override { params_.merge(params); }
    void setModelInfo(std::shared_ptr<ADMCoreModelInfo>) override {}
    void setServiceState(std::uint32_t) override {}
    void setResolvedSpec(const dmf::Dictionary&) override {}
    std::optional<std::string> universalURIWithScheme(std::optional<std::string_view>) override { return std::nullopt; }
    bool hasStandardURI() override { return true; }
    std::optional<std::string> deviceClass() const override { return std::nullopt; }
    std::optional<std::string> serviceName() const override { return std::nullopt; }
    std::uint32_t serviceState() const override { return 0; }
    std::vector<std::string> supportedDeviceClasses() override { return {}; }
    std::optional<dmf::Data> dataRepresentation() const override { return std::nullopt; }
    std::shared_ptr<ADMServiceInfo> copy() const override { return nullptr; }
    bool isEqual(ADMServiceInfo& other) override { return &other == this; }
    bool isEqualToServiceInfo(ADMServiceInfo& other) override { return &other == this; }
    std::uint32_t hash() override { return 0; }
    std::shared_ptr<ADMServiceInfoDelegate> delegate() const override { return nullptr; }
    void setDelegate(const std::shared_ptr<ADMServiceInfoDelegate>&) override {}
    void scheduleInRunLoop(std::shared_ptr<dmf::RunLoop>, std::optional<std::string_view>) override {}
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>&, std::string_view) override {}
    void resolveServiceWithParameters(const dmf::Dictionary&, double) override {}
    void resolveWithTimeout(double) override {}
    void stop() override {}

private:
    std::shared_ptr<IDMDevice> device_;
    std::string type_;
    dmf::Dictionary params_;
};
