#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/platform/CourteousLock.h>

class ADMConnectionProvider;
class ADMMessageQueue;

/// What all transports' channels have in common: it tests requests, hands them to its connection provider, and turns
/// the provider's statuses into error records and delegate calls. A transport supplies
/// `createAndOpenProviderWithTimeout` alone:
///
///     class SocketChannel final : public ADMDuplexDataChannelBase {
///     public:
///         using ADMDuplexDataChannelBase::ADMDuplexDataChannelBase;
///     protected:
///         std::int16_t createAndOpenProviderWithTimeout(double timeout) override;
///     };
///     auto channel = ADMDuplexDataChannelBase::initWithServiceInfo<SocketChannel>(serviceInfo, "Print");
class DMF_EXPORT ADMDuplexDataChannelBase : public ADMDuplexDataChannel,
                                            public std::enable_shared_from_this<ADMDuplexDataChannelBase> {
public:
    /// A channel of the class `Channel`; empty without a service info.
    template <class Channel>
    [[nodiscard]] static std::shared_ptr<Channel> initWithServiceInfo(std::shared_ptr<ADMServiceInfo> serviceInfo,
                                                                      std::string channelName)
    {
        if (!serviceInfo)
            return nullptr;
        auto channel = std::make_shared<Channel>(Initializer(std::move(serviceInfo), std::move(channelName)));
        channel->makeMessageQueue();
        return channel;
    }

    /// What a channel starts from. Only `initWithServiceInfo` makes one, so that no channel is left half made.
    class Initializer {
        friend class ADMDuplexDataChannelBase;
        Initializer(std::shared_ptr<ADMServiceInfo> serviceInfo, std::string name)
            : serviceInfo_(std::move(serviceInfo)), name_(std::move(name))
        {
        }
        std::shared_ptr<ADMServiceInfo> serviceInfo_;
        std::string name_;
    };
    explicit ADMDuplexDataChannelBase(Initializer&& initializer);
    ~ADMDuplexDataChannelBase() override;
    ADMDuplexDataChannelBase(const ADMDuplexDataChannelBase&) = delete;
    ADMDuplexDataChannelBase& operator=(const ADMDuplexDataChannelBase&) = delete;

    [[nodiscard]] std::shared_ptr<ADMServiceInfo> serviceInfo() const override { return serviceInfo_; }
    [[nodiscard]] std::string name() const override { return name_; }
    [[nodiscard]] std::shared_ptr<ADMConnectionProvider> provider() const;
    void setProvider(std::shared_ptr<ADMConnectionProvider> provider);
    [[nodiscard]] std::shared_ptr<ADMMessageQueue> messageQueue() const { return messageQueue_; }
    /// The lock that channel and provider share.
    [[nodiscard]] std::shared_ptr<dmf::CourteousLock> lockObject() const { return lock_; }
    [[nodiscard]] std::uint32_t maxReadPacketSize() const override;
    [[nodiscard]] std::uint32_t maxWritePacketSize() const override;

    [[nodiscard]] bool open() override;
    void close() override;
    [[nodiscard]] bool isOpened() const override;
    /// Whether a close has been asked for since the last opening. Never waits.
    [[nodiscard]] bool shouldClose() const noexcept { return shouldClose_; }

    [[nodiscard]] std::shared_ptr<ADMDuplexDataChannelDelegate> delegate() const override;
    void setDelegate(const std::shared_ptr<ADMDuplexDataChannelDelegate>& delegate) override;
    void scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) override;
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) override;

    bool scheduleWriteData(const dmf::Data& data, double timeout) override;
    bool scheduleReadDataOfLength(std::uint32_t length, double timeout) override;
    bool scheduleReadDataWithTimeout(double timeout) override;
    bool writeData(const dmf::Data& data, double timeout, dmf::Dictionary* error) override;
    bool readDataOfLength(dmf::Data& data, std::uint32_t length, double timeout, dmf::Dictionary* error) override;
    bool readDataUpToLength(dmf::Data& data, std::uint32_t length, double timeout, dmf::Dictionary* error) override;
    std::uint32_t readDataToBuffer(std::span<std::uint8_t> buffer, double timeout, dmf::Dictionary* error) override;
    bool finishWriting(double timeout, dmf::Dictionary* error) override;

    /// What the provider asks while a transfer waits: whether the client wants it ended. Calls the delegate, so no lock
    /// is to be held.
    [[nodiscard]] bool shouldCancelRead();
    [[nodiscard]] bool shouldCancelWrite();

    /// What the provider tells of asynchronous transfers, on any thread; each becomes a queued delegate call.
    void writeDataOfSize(std::uint32_t size);
    void readData(std::span<const std::uint8_t> bytes);
    void writeDataFinished(std::int16_t status);
    void readDataFinished(std::int16_t status);
    /// And of every end of a connection, with the shared lock held.
    void connectionDidClose();

    /// The memory that blocks take up which were read asynchronously and which the client has not been given yet: their
    /// bytes, and for each what keeping it costs. A transport stops reading ahead while it is much, so that a slow
    /// client does not fill the memory; the device is then slowed down by its own transport.
    [[nodiscard]] std::uint64_t undeliveredBytes() const noexcept { return undeliveredBytes_; }

    /// The channel's code for a provider's status.
    [[nodiscard]] static dmf::ChannelError translateError(std::int16_t status) noexcept;

protected:
    /// Makes the provider, installs it with `setProvider`, opens it and gives its status. `timeout` is in seconds.
    /// Called with the shared lock held. This one throws dmf::UnrecognizedOperation.
    virtual std::int16_t createAndOpenProviderWithTimeout(double timeout);

private:
    enum class Direction : std::int32_t { read = 1, write = 2 };
    using Question = std::function<bool(ADMDuplexDataChannel&)>;

    void makeMessageQueue();
    void deliverQueuedObject(ADMMessageQueue& queue, const dmf::Value& object);
    void countDelivered(std::size_t size) noexcept;
    void queueFinished(Direction direction, std::int16_t status);
    [[nodiscard]] std::int16_t openProvider(std::uint32_t closeRequestsBefore);
    [[nodiscard]] bool shouldCancel(Question ADMDuplexDataChannelDelegate::*question);
    [[nodiscard]] dmf::ChannelError checkRequest(bool isComplete, double timeout,
                                                 std::shared_ptr<ADMConnectionProvider>& provider) const;
    bool answerScheduling(Direction direction, dmf::ChannelError code);
    bool readAppending(dmf::Data& data, std::uint32_t length, bool wholeLength, double timeout, dmf::Dictionary* error);

    const std::shared_ptr<ADMServiceInfo> serviceInfo_;
    const std::string name_;
    const std::shared_ptr<dmf::CourteousLock> lock_;
    std::shared_ptr<ADMConnectionProvider> provider_; // guarded by lock_
    std::atomic<bool> shouldClose_{false};
    std::atomic<std::uint32_t> closeRequests_{0};
    std::atomic<std::uint64_t> undeliveredBytes_{0};
    std::vector<dmf::Data> blocks_; // guarded by lock_; see readData
    std::size_t nextBlock_ = 0;     // guarded by lock_
    mutable std::recursive_mutex delegateLock_;
    std::weak_ptr<ADMDuplexDataChannelDelegate> delegate_; // guarded by delegateLock_
    std::shared_ptr<ADMMessageQueue> messageQueue_;        // set once, before the channel is handed out
};
