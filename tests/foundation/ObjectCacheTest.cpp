#include <dmf/ADMObjectCache.h>

#include "support/HostFixture.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

using namespace std::chrono_literals;

TEST(ObjectCache, HandsBackOnlyYoungObjects)
{
    HostFixture host;
    ADMObjectCache cache;
    cache.cacheObject("info", "key");
    host.advance(4.9s);
    cache.cacheObject(nullptr, "key");
    EXPECT_EQ(cache.cachedObjectForKey("key", 5.0), "info");
    host.advance(0.2s);
    EXPECT_TRUE(cache.cachedObjectForKey("key", 5.0).isNull());
    EXPECT_EQ(cache.cachedObjectForKey("key", 6.0), "info") << "a stale entry stays";

    cache.cacheObject("debug", "key");
    EXPECT_EQ(cache.cachedObjectForKey("key", 5.0), "debug");
    EXPECT_TRUE(cache.cachedObjectForKey("other", 5.0).isNull());
    host.advance(-10s); // a clock set back makes entries old as well
    EXPECT_TRUE(cache.cachedObjectForKey("key", 5.0).isNull());
    EXPECT_EQ(cache.cachedObjectForKey("key", 15.0), "debug");
}

TEST(ObjectCache, ObjectsMayComeBackToTheCacheAsTheyGo)
{
    struct Visitor {
        std::function<void()> leave;
        ~Visitor() { leave(); }
    };
    ADMObjectCache cache;
    int visits = 0;
    const auto put = [&] {
        const auto visitor = std::make_shared<Visitor>();
        visitor->leave = [&] {
            cache.cacheObject(++visits, "visits");
            cache.removeObjectForKey("visitor");
        };
        cache.cacheObject(dmf::Value::ofObject(visitor), "visitor");
    };
    put();
    cache.cacheObject("other", "visitor");
    EXPECT_EQ(visits, 1);
    put();
    cache.removeObjectForKey("visitor");
    EXPECT_EQ(visits, 2);
    put();
    cache.removeAllObjects();
    EXPECT_EQ(cache.cachedObjectForKey("visits", 100), 3);
    EXPECT_TRUE(cache.cachedObjectForKey("visitor", 100).isNull());
}

TEST(ObjectCache, ServesManyThreadsAtOnce)
{
    ADMObjectCache cache;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&cache, i] {
            const std::string own = "a key of thread " + std::to_string(i);
            for (int round = 0; round < 500; ++round) {
                cache.cacheObject(round, own);
                cache.cacheObject("a text too long to be kept in place", "shared");
                EXPECT_EQ(cache.cachedObjectForKey(own, 1000), round);
                (void)cache.cachedObjectForKey("shared", 1000);
                cache.removeObjectForKey(round % 2 ? own : "shared");
            }
        });
    for (auto& thread : threads)
        thread.join();
}
