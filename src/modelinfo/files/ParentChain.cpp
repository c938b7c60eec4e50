#include "modelinfo/files/ParentChain.h"

#include <mutex>
#include <thread>
#include <unordered_map>

#include <dmf/ADMInfo.h>
#include <dmf/ADMModelInfoHandler.h>
#include <dmf/ADMModelInfoManager.h>

#include "modelinfo/files/ModelInfoLog.h"

namespace dmf::internal {

namespace {

/// Longer chains of parents are cut, since each generation takes a piece of the thread's stack.
constexpr unsigned kMaximumGenerations = 256;

enum class Refusal { none, circle, tooLong };

/// Who builds what, and who waits for what, over the whole process. A thread that builds waits for one parent at most,
/// so from any handler there is one way to go on, and looking along it finds every circle. Thread-safe.
class Chains {
public:
    static Chains& shared()
    {
        static Chains* const chains = new Chains;
        return *chains;
    }

    void beginBuilding(const ADMModelInfoHandler* handler)
    {
        std::lock_guard guard(lock_);
        Thread& self = threads_[std::this_thread::get_id()]; // without a generation it is as if it were not there
        builders_[handler] = std::this_thread::get_id();
        ++self.generations;
        self.waitsFor = nullptr; // what it waited for is what it builds now
    }

    void endBuilding(const ADMModelInfoHandler* handler)
    {
        std::lock_guard guard(lock_);
        builders_.erase(handler);
        const auto self = threads_.find(std::this_thread::get_id());
        if (--self->second.generations == 0)
            threads_.erase(self);
    }

    /// Notes that the calling thread is about to wait for the parent, in the same step as the look for a circle: of
    /// the waits that together make one, the last to be noted sees all the others.
    Refusal beginWaiting(const ADMModelInfoHandler* parent)
    {
        std::lock_guard guard(lock_);
        const auto self = std::this_thread::get_id();
        for (const ADMModelInfoHandler* next = parent; next != nullptr;) {
            const auto builder = builders_.find(next);
            if (builder == builders_.end())
                break;
            if (builder->second == self)
                return Refusal::circle;
            next = threads_[builder->second].waitsFor;
        }
        Thread& thread = threads_[self];
        if (thread.generations >= kMaximumGenerations)
            return Refusal::tooLong;
        thread.waitsFor = parent;
        return Refusal::none;
    }

    void endWaiting()
    {
        std::lock_guard guard(lock_);
        threads_[std::this_thread::get_id()].waitsFor = nullptr;
    }

private:
    struct Thread {
        const ADMModelInfoHandler* waitsFor = nullptr;
        unsigned generations = 0; // handlers whose trees it builds
    };

    std::mutex lock_;
    std::unordered_map<const ADMModelInfoHandler*, std::thread::id> builders_; // guarded by lock_
    std::unordered_map<std::thread::id, Thread> threads_; // those that build something; guarded by lock_
};

class Waiting {
public:
    explicit Waiting(const ADMModelInfoHandler& parent) : refusal_(Chains::shared().beginWaiting(&parent)) {}
    ~Waiting()
    {
        if (refusal_ == Refusal::none)
            Chains::shared().endWaiting();
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    [[nodiscard]] Refusal refusal() const noexcept { return refusal_; }

private:
    const Refusal refusal_;
};

} // namespace

BuildingTree::BuildingTree(const ADMModelInfoHandler& handler) : handler_(handler)
{
    Chains::shared().beginBuilding(&handler_);
}

BuildingTree::~BuildingTree()
{
    Chains::shared().endBuilding(&handler_);
}

std::shared_ptr<ADMInfo> parentInfo(const std::string& parent, const std::string& table)
{
    const auto handler = ADMPrivateModelInfoManager::sharedManager()->modelInfoHandlerForFile(parent, table);
    if (!handler)
        return nullptr;
    const Waiting waiting(*handler);
    if (waiting.refusal() == Refusal::none)
        return handler->info();
    logModelInfo("errors",
                 waiting.refusal() == Refusal::circle
                     ? "ModelInfo: the file '%@' in '%@' table inherits from a file that names it as its parent; that "
                       "file is used without inheritance"
                     : "ModelInfo: the file '%@' in '%@' table ends a chain of too many parents; the file that names "
                       "it is used without inheritance",
                 parent, table);
    return nullptr;
}

} // namespace dmf::internal
