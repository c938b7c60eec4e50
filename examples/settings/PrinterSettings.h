#pragma once

#include <string>
#include <vector>

#include <dmf/ADMDeviceSettingsModel.h>

/// The settings of an invented printer: a model as a device plug-in would write it. A real one reads and writes the
/// device in the functions that it gives to `defineSetting`; this one keeps the values in memory.
class PrinterSettings final : public ADMDeviceSettingsModel {
public:
    PrinterSettings()
    {
        defineSetting(
            "deviceName", [this] { return dmf::Value(name_); },
            [this](const dmf::Value& value) { name_ = value.string().value_or(name_); });
        defineRange("deviceName", {3, 8});
        defineCharacterSet("deviceName", dmf::CharacterSet::alphanumerics());
        defineValidator("deviceName", [this](dmf::Value& value, dmf::Error* error) {
            return validateStringValue(value, "deviceName", error);
        });

        defineSetting(
            "contactEmail", [this] { return dmf::Value(email_); },
            [this](const dmf::Value& value) { email_ = value.string().value_or(email_); });
        defineValidator("contactEmail", [this](dmf::Value& value, dmf::Error* error) {
            return validateEmailValue(value, "contactEmail", error);
        });

        defineSetting(
            "serviceDate", [this] { return dmf::Value(serviceDate_); },
            [this](const dmf::Value& value) { serviceDate_ = value.asDate() ? *value.asDate() : dmf::Date(); });
        defineValidator("serviceDate", [this](dmf::Value& value, dmf::Error* error) {
            return validateDateValue(value, "serviceDate", error);
        });

        defineSetting(
            "sleepMinutes", [this] { return dmf::Value(sleepMinutes_); },
            [this](const dmf::Value& value) {
                sleepMinutes_ = value.asNumber() ? value.asNumber()->uint32Value() : sleepMinutes_;
            });
        defineRange("sleepMinutes", {10, 5});
        defineValidator("sleepMinutes", [this](dmf::Value& value, dmf::Error* error) {
            return validateNumberValue(value, "sleepMinutes", error);
        });

        defineSetting(
            "PaperSize", [this] { return dmf::Value(paperSize_); },
            [this](const dmf::Value& value) { paperSize_ = value.string().value_or(paperSize_); });
        defineValues("PaperSize", {"A4", "A5", "Letter"});
        defineValidator("PaperSize", [this](dmf::Value& value, dmf::Error* error) {
            return validateEnumeratedValue(value, "PaperSize", error);
        });

        defineSetting(
            "serialNumber", [] { return dmf::Value("CN1234"); }, [](const dmf::Value&) {});
        define("restart", [](std::span<dmf::Value>) { return dmf::Value("restarted"); });
    }

    [[nodiscard]] std::vector<std::string> supportedKeys() const override
    {
        return {"deviceName", "contactEmail", "serviceDate", "sleepMinutes", "PaperSize", "serialNumber"};
    }
    [[nodiscard]] bool isKeyReadOnly(std::string_view key) const override { return key == "serialNumber"; }
    [[nodiscard]] const dmf::Protocol& modelProtocol() const override
    {
        static constexpr std::string_view operations[] = {"deviceName", "contactEmail", "serviceDate"};
        static constexpr dmf::Protocol protocol("PrinterSettings", {}, operations);
        return protocol;
    }
    [[nodiscard]] std::string className() const override { return "PrinterSettings"; }

private:
    std::string name_ = "printer";
    std::string email_ = "help@example.com";
    dmf::Date serviceDate_;
    std::uint32_t sleepMinutes_ = 12;
    std::string paperSize_ = "A4";
};
