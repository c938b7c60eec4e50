#pragma once

#include <map>
#include <memory>
#include <string>

#include "EmulatedPrinter.h"

struct _UMockdevTestbed;

/// A USB of the test's own, seen by this program and those that it starts in place of the machine's. Devices are
/// plugged in and out; each answers as its script says.
///
/// The program must run under umockdev's library: its `main` calls `beginEmulation` first.
class EmulatedUsb {
public:
    /// Starts the program again with umockdev's library in front of the system's, unless it is there already. Does
    /// nothing where umockdev is missing.
    static void beginEmulation(char** arguments);
    /// Why there can be no emulation here; empty when there can.
    static std::string problem();

    EmulatedUsb();
    ~EmulatedUsb();
    EmulatedUsb(const EmulatedUsb&) = delete;
    EmulatedUsb& operator=(const EmulatedUsb&) = delete;

    /// A device that is not plugged in yet.
    std::shared_ptr<EmulatedPrinter> prepare(const EmulatedSpec& spec);
    void plug(const std::shared_ptr<EmulatedPrinter>& printer);
    std::shared_ptr<EmulatedPrinter> plug(const EmulatedSpec& spec = {});
    /// The kernel's event comes first, and then the device goes from the tree.
    void unplug(std::string place);
    /// From now on nobody who begins to listen for events hears any.
    void withoutEvents();
    /// Where the emulated files lie.
    [[nodiscard]] const std::string& folder() const { return folder_; }

private:
    [[nodiscard]] std::string devicePath(const EmulatedSpec& spec) const;
    void addBus(int number);
    /// Ends the far end of a node that no device has any more, once nobody has it open.
    void leave(std::string node);
    _UMockdevTestbed* bed_;
    std::string folder_;
    std::map<std::string, std::shared_ptr<EmulatedPrinter>> plugged_;  // by place
    std::map<std::string, std::shared_ptr<EmulatedPrinter>> departed_; // by node
    std::map<int, bool> buses_;
};
