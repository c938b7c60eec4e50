#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// How an emulated device is built.
struct EmulatedEndpoint {
    std::uint8_t address = 0;
    std::uint16_t maxPacketSize = 512;
};
struct EmulatedInterface {
    int number = 0, alternate = 0, classCode = 7, subclass = 1, protocol = 2;
    std::vector<EmulatedEndpoint> endpoints = {{0x01}, {0x82}};
};
struct EmulatedSpec {
    std::string place = "1-1";
    int address = 2;
    int vendorId = 0x1209, productId = 0x9009;
    std::string manufacturer = "QL", product = "Model 9", serialNumber = "SN0001"; ///< empty: it does not say
    std::vector<EmulatedInterface> interfaces = {{}};
    std::string driver{};                                   ///< of the kernel, on all interfaces; empty: none
    std::string kernelDeviceId{};                           ///< what that driver read
    std::optional<std::vector<std::uint8_t>> descriptors{}; ///< instead of those of what is told above
    bool hasNode = true;

    [[nodiscard]] std::vector<std::uint8_t> descriptorBytes() const;
};

struct _UMockdevIoctlBase;
struct _UMockdevIoctlClient;
struct _UMockdevIoctlData;

/// The far end of the kernel's interface to one USB device: answers its calls as the script below says. Thread-safe.
class EmulatedPrinter {
public:
    explicit EmulatedPrinter(EmulatedSpec spec, std::string driverFolder);
    ~EmulatedPrinter();
    EmulatedPrinter(const EmulatedPrinter&) = delete;
    EmulatedPrinter& operator=(const EmulatedPrinter&) = delete;

    // The script. What is not told: a device ID that fits, bytes are taken at once, nothing is sent.
    void answerDeviceId(const std::string& text); ///< with the right length before it
    void answerDeviceIdBytes(std::vector<std::uint8_t> answer);
    void refuseDeviceId(); ///< by a stall
    void ignoreDeviceId(); ///< never answers
    void setPortStatus(std::uint8_t status);
    void takeAtMost(std::size_t bytes);                ///< and then nothing more, until another limit is told
    void takeSlowly(std::chrono::microseconds each);   ///< so long for each transfer
    void stallAfter(std::size_t bytes, int times = 1); ///< halts once it has taken so many, so often
    void unplugAfter(std::size_t bytes);               ///< answers like one that was pulled out
    void send(const std::string& bytes);
    void echo(); ///< sends back what it takes
    void setClaimedByOther(bool isClaimed);
    void pullOut(); ///< every call fails from now on

    // What it saw.
    [[nodiscard]] std::string taken() const;
    [[nodiscard]] int count(const std::string& event) const; ///< "claim", "release", "attach", "detach", ...
    [[nodiscard]] std::string driverOf(int interface) const;
    [[nodiscard]] int transfersUnderWay() const;
    [[nodiscard]] const EmulatedSpec& spec() const { return spec_; }

    [[nodiscard]] _UMockdevIoctlBase* handler() const { return handler_; }

private:
    struct Transfer;
    struct Reply {
        int result = 0;
        int error = 0;
        std::chrono::milliseconds delay{0};
    };

    [[nodiscard]] Reply answer(unsigned long request, _UMockdevIoctlData* argument, _UMockdevIoctlData* data);
    [[nodiscard]] Reply control(_UMockdevIoctlData* data);
    [[nodiscard]] Reply claim(unsigned interface, bool detaches);
    [[nodiscard]] Reply release(unsigned interface);
    [[nodiscard]] Reply attachOrDetach(_UMockdevIoctlData* data);
    [[nodiscard]] Reply submit(_UMockdevIoctlData* data);
    [[nodiscard]] Reply discard(_UMockdevIoctlData* argument);
    [[nodiscard]] Reply reap(_UMockdevIoctlData* data);
    void advance(Transfer& transfer);
    void advanceControl(Transfer& transfer);
    void take(Transfer& transfer);
    void giveAnswer(Transfer& transfer);
    /// The answer to a control request; nothing for a refusal.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> answerTo(int type, int request, int value, int length);
    void setDriver(int interface, const std::string& driver);
    static int handle(_UMockdevIoctlBase*, _UMockdevIoctlClient* client, void* self);

    const EmulatedSpec spec_;
    const std::string driverFolder_;
    _UMockdevIoctlBase* handler_ = nullptr;
    mutable std::mutex lock_;
    std::optional<std::vector<std::uint8_t>> deviceId_; // this and the following guarded by lock_
    bool ignoresDeviceId_ = false;
    std::uint8_t portStatus_ = 0x18;
    std::size_t takeLimit_ = SIZE_MAX, stallAt_ = SIZE_MAX, unplugAt_ = SIZE_MAX;
    int stallsLeft_ = 0;
    bool isHalted_ = false, echoes_ = false, isGone_ = false, isClaimedByOther_ = false;
    std::chrono::microseconds slowness_{0};
    std::string taken_, toSend_;
    std::map<std::string, int> counts_;
    std::map<int, std::string> drivers_;
    std::vector<std::unique_ptr<Transfer>> transfers_;
};
