
#include <gtest/gtest.h>

#include <dmf/platform/Error.h>
#include <dmf/platform/Format.h>

#include "TestOperation.h"

namespace {

struct Client : dmf::Delegate {};

std::shared_ptr<ADMSchedulableOperation> fresh()
{
    return ADMSchedulableOperation::initWithServiceInfo(std::make_shared<FakeServiceInfo>());
}

} // namespace

TEST(SchedulableOperation, BelongsToAServiceAndLeavesTheWorkToSubclasses)
{
    EXPECT_FALSE(ADMSchedulableOperation::initWithServiceInfo(nullptr));
    const auto operation = fresh();
    EXPECT_THROW((void)operation->performOperation(), dmf::UnrecognizedOperation);
    EXPECT_THROW(operation->scheduleInRunLoop(dmf::RunLoop::current(), "m"), dmf::UnrecognizedOperation);
    EXPECT_THROW(operation->removeFromRunLoop(dmf::RunLoop::current(), "m"), dmf::UnrecognizedOperation);
}

TEST(SchedulableOperation, EachSchedulingBeginsANewRunThatCanBeCanceled)
{
    const auto operation = fresh();
    EXPECT_FALSE(operation->isActive());
    operation->cancel();
    EXPECT_FALSE(operation->isCanceled());
    operation->setFinished(true);
    operation->setOperationSucceed(true);
    operation->setCanceled(true);
    operation->setError({{"DMErrorCode", 6}});
    operation->setUserInfo("kept");
    operation->setLimitDate(dmf::Date(5));
    operation->scheduleOperation();
    EXPECT_TRUE(operation->isActive());
    EXPECT_FALSE(operation->isFinished() || operation->isOperationSucceed() || operation->isCanceled());
    EXPECT_TRUE(operation->error().empty());
    EXPECT_EQ(operation->userInfo(), "kept");
    EXPECT_EQ(operation->limitDate(), dmf::Date(5));
    operation->cancel();
    EXPECT_TRUE(operation->isCanceled());
}

TEST(SchedulableOperation, DescribesItself)
{
    const auto operation = fresh();
    const auto self = dmf::formatted("<ADMSchedulableOperation: %p>", static_cast<const void*>(operation.get()));
    EXPECT_EQ(operation->description(), self +
                                            " { delegate = (null), userInfo = (null), error = (null), isActive = NO, "
                                            "isFinished = NO, isSucceeded = NO, isCanceled = NO");
    const auto client = std::make_shared<Client>();
    operation->scheduleOperation();
    operation->setDelegate(client);
    operation->setUserInfo("mine");
    operation->setError({{"DMErrorCode", 6}});
    operation->setOperationSucceed(true);
    EXPECT_EQ(operation->description(),
              self + dmf::formatted(" { delegate = <(anonymous namespace)::Client: %p>, userInfo = mine, error = %@, "
                                    "isActive = YES, isFinished = NO, "
                                    "isSucceeded = YES, isCanceled = NO",
                                    static_cast<const void*>(client.get()), operation->error()));
    EXPECT_EQ(makeOperation({})->description().find("<TestOperation: 0x"), 0u);
}
