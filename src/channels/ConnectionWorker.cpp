#include <dmf/ADMConnectionProvider.h>

#include <utility>

#include <dmf/ADMDuplexDataChannelBase.h>

#include "foundation/threads/HandOver.h"

using dmf::internal::HandOver;
namespace ProviderStatus = dmf::ProviderStatus;

// The part of a connection provider that runs its worker thread and tells the channel what that has done.

/// How the starter of the worker learns whether it serves: the worker answers, then releases `turn`.
struct ADMConnectionProvider::StartHandShake {
    HandOver turn{HandOver::State::taken};
    bool canServe = false;
};

/// With the lock held; true once the worker serves.
bool ADMConnectionProvider::startWorker()
{
    std::lock_guard life(lifeLock_);
    StartHandShake handShake;
    handShake_ = &handShake;
    if (start() == 0)
        handShake.turn.lock();
    handShake_ = nullptr;
    isServing_ = handShake.canServe;
    return isServing_;
}

/// Waits for a worker that takes no more requests. The lock is let go meanwhile: the worker may need it to finish.
void ADMConnectionProvider::stopWorker(Lock& held)
{
    held.unlock();
    {
        std::lock_guard life(lifeLock_);
        if (!isServing_) // otherwise somebody else waited for the old worker and started a new one
            (void)stop();
    }
    held.lock();
}

void ADMConnectionProvider::signalReady()
{
    answerHandShake(true);
}
void ADMConnectionProvider::signalCannotServe()
{
    answerHandShake(false);
}

void ADMConnectionProvider::answerHandShake(bool canServe)
{
    if (auto* const handShake = handShake_.exchange(nullptr)) {
        handShake->canServe = canServe;
        handShake->turn.unlock();
    }
}

std::uintptr_t ADMConnectionProvider::threadEntry()
{
    releaseStarter();
    std::uintptr_t result = 0;
    try {
        result = run();
    } catch (...) {
        workerEnded();
        finish(0);
        throw;
    }
    workerEnded();
    finish(result);
    return result;
}

void ADMConnectionProvider::workerEnded()
{
    answerHandShake(false);
    std::lock_guard held(*lock_);
    if (!isServing_.exchange(false))
        return; // it was asked to end, or never served
    notifyParentOnTicket(readTicket(), ProviderStatus::failed);
    notifyParentOnTicket(writeTicket(), ProviderStatus::failed);
}

// Progress

ADMTransferTicket* ADMConnectionProvider::toServe(ADMTransferTicket* ticket) noexcept
{
    // A synchronous request without a waiter is done on its caller's thread, or has ended and waits to be collected.
    return ticket && (!ticket->isSynchronous_ || ticket->waiter_) ? ticket : nullptr;
}

void ADMConnectionProvider::notifyParentOnTicket(ADMTransferTicket* ticket, Status status)
{
    if (!ticket)
        return;
    std::lock_guard held(*lock_);
    if (ticket->isSynchronous_) {
        if (auto* const waiter = std::exchange(ticket->waiter_, nullptr)) {
            ticket->status_ = status;
            waiter->unlock();
        }
    } else if (ticket == writeTicket_) {
        notifyWrite(*ticket, status);
    } else if (ticket == readTicket_) {
        notifyRead(*ticket, status);
    }
}

void ADMConnectionProvider::notifyWrite(ADMTransferTicket& ticket, Status status)
{
    const auto channel = parent();
    if (ticket.processed_ > ticket.reported_) {
        if (channel)
            channel->writeDataOfSize(ticket.processed_ - ticket.reported_);
        ticket.reported_ = ticket.processed_;
    }
    if (status == ProviderStatus::success && !ticket.isComplete())
        return;
    writeTicket_ = nullptr;
    ticket = {};
    if (channel)
        channel->writeDataFinished(status);
}

void ADMConnectionProvider::notifyRead(ADMTransferTicket& ticket, Status status)
{
    const auto channel = parent();
    if (ticket.processed_ > ticket.reported_) {
        if (channel)
            channel->readData({ticket.space_, ticket.processed_ - ticket.reported_});
        if (ticket.wantsWholeLength_)
            ticket.reported_ = ticket.processed_;
        else
            ticket.processed_ = 0; // the buffer serves the next block
    }
    if (status == ProviderStatus::success && !ticket.isComplete())
        return;
    forgetRead();
    if (channel)
        channel->readDataFinished(status);
}
