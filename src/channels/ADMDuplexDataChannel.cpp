#include <dmf/ADMDuplexDataChannel.h>

const dmf::Protocol& ADMDuplexDataChannel::protocol()
{
    static constexpr std::string_view operations[] = {
        "serviceInfo",
        "name",
        "maxReadPacketSize",
        "maxWritePacketSize",
        "open",
        "close",
        "isOpened",
        "delegate",
        "setDelegate:",
        "scheduleInRunLoop:forMode:",
        "removeFromRunLoop:forMode:",
        "scheduleWriteData:withTimeout:",
        "scheduleReadDataOfLength:withTimeout:",
        "scheduleReadDataWithTimeout:",
        "writeData:withTimeout:error:",
        "readData:ofLength:withTimeout:error:",
        "readData:upToLength:withTimeout:error:",
        "readDataToBuffer:withLength:withTimeout:error:",
    };
    static constexpr dmf::Protocol described("ADMDuplexDataChannel", {}, operations);
    return described;
}

ADMDuplexDataChannel::~ADMDuplexDataChannel() = default;

bool ADMDuplexDataChannel::finishWriting(double, dmf::Dictionary*)
{
    return true;
}
