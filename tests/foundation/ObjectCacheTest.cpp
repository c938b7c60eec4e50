#include <dmf/ADMObjectCache.h>

#include "support/HostFixture.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <thread>

using namespace std::chrono_literals;

TEST(ObjectCache, HandsBackOnlyYoungObjects)
{
    HostFixture host;
    ADMObjectCache cache;
    cache.cacheObject("info", "DMLogLevel");

    host.advance(4.9s);
    EXPECT_EQ(cache.cachedObjectForKey("DMLogLevel", 5.0), "info");
    host.advance(0.2s);
    EXPECT_TRUE(cache.cachedObjectForKey("DMLogLevel", 5.0).isNull());
    EXPECT_EQ(cache.cachedObjectForKey("DMLogLevel", 6.0), "info") << "a stale entry stays";

    cache.cacheObject("debug", "DMLogLevel");
    EXPECT_EQ(cache.cachedObjectForKey("DMLogLevel", 5.0), "debug");
    EXPECT_TRUE(cache.cachedObjectForKey("DMLogLevel", -1.0).isNull());
    EXPECT_TRUE(cache.cachedObjectForKey("other", 5.0).isNull());
}

TEST(ObjectCache, AClockSetBackMakesEntriesOldAsWell)
{
    HostFixture host;
    ADMObjectCache cache;
    cache.cacheObject(1, "key");
    host.advance(-10s);
    EXPECT_TRUE(cache.cachedObjectForKey("key", 5.0).isNull());
    EXPECT_EQ(cache.cachedObjectForKey("key", 15.0), 1);
}

TEST(ObjectCache, MissingObjectsLeaveTheEarlierOne)
{
    HostFixture host;
    const auto cache = ADMObjectCache::objectCache();
    cache->cacheObject("first", "key");
    host.advance(3s);
    cache->cacheObject(nullptr, "key");
    EXPECT_EQ(cache->cachedObjectForKey("key", 5.0), "first");
    EXPECT_TRUE(cache->cachedObjectForKey("key", 2.0).isNull()) << "nor does its age change";
    cache->cacheObject(nullptr, "other");
    EXPECT_TRUE(cache->cachedObjectForKey("other", 5.0).isNull());
}

TEST(ObjectCache, RemovesOneOrAll)
{
    ADMObjectCache cache;
    for (const char* key : {"a", "b", "c", ""})
        cache.cacheObject(key, key);
    cache.removeObjectForKey("a");
    cache.removeObjectForKey("unknown");
    EXPECT_TRUE(cache.cachedObjectForKey("a", 100).isNull());
    EXPECT_EQ(cache.cachedObjectForKey("", 100), "");
    cache.removeAllObjects();
    for (const char* key : {"b", "c", ""})
        EXPECT_TRUE(cache.cachedObjectForKey(key, std::numeric_limits<double>::infinity()).isNull());
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

TEST(ObjectCache, KeepsItsDelegateOnlyWhileItsOwnerDoes)
{
    ADMObjectCache cache;
    EXPECT_EQ(cache.delegate(), nullptr);
    auto delegate = std::make_shared<int>(1);
    cache.setDelegate(delegate);
    EXPECT_EQ(cache.delegate(), delegate);
    delegate.reset();
    EXPECT_EQ(cache.delegate(), nullptr);
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
