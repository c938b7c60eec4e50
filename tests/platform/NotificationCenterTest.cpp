#include <dmf/platform/NotificationCenter.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using dmf::Notification;
using dmf::NotificationCenter;

TEST(NotificationCenter, ObserversAreCalledInOrderByNameAndSender)
{
    NotificationCenter center;
    const int sender = 0;
    std::vector<std::string> calls;
    const auto observer = [&](const char* who) {
        return [&calls, who](const Notification& it) {
            calls.push_back(std::string(who) + " " + it.name + " " + it.userInfo.string("key").value_or("-"));
        };
    };
    const auto any = center.addObserver("found", observer("any"));
    const auto one = center.addObserver("found", observer("one"), &sender);
    auto ended = center.addObserver("found", observer("ended"));
    const auto other = center.addObserver("lost", observer("other"));
    ended.reset();
    center.post("found", &sender, {{"key", "value"}});
    center.post("found");
    center.post("lost", &sender);
    EXPECT_EQ(calls, (std::vector<std::string>{"any found value", "one found value", "any found -", "other lost -"}));
}

TEST(NotificationCenter, ObserversMayChangeWhileOneIsPosted)
{
    NotificationCenter center;
    std::vector<std::string> calls;
    NotificationCenter::Observation second;
    NotificationCenter::Observation added;
    NotificationCenter::Observation first = center.addObserver("n", [&](const Notification&) {
        calls.emplace_back("first");
        first.reset();
        second.reset();
        added = center.addObserver("n", [&](const Notification&) { calls.emplace_back("added"); });
    });
    second = center.addObserver("n", [&](const Notification&) { calls.emplace_back("second"); });
    center.post("n");
    EXPECT_EQ(calls, std::vector<std::string>{"first"});
    center.post("n");
    EXPECT_EQ(calls, (std::vector<std::string>{"first", "added"}));
}

TEST(NotificationCenter, WhatAnObserverThrowsReachesTheCallerAfterTheOthers)
{
    NotificationCenter center;
    int calls = 0;
    const auto bad = center.addObserver("n", [](const Notification&) { throw std::runtime_error("observer"); });
    const auto worse = center.addObserver("n", [](const Notification&) { throw std::logic_error("the second"); });
    const auto after = center.addObserver("n", [&](const Notification&) { ++calls; });
    EXPECT_THROW(center.post("n"), std::runtime_error);
    EXPECT_EQ(calls, 1);
}

TEST(NotificationCenter, AnObservationMayOutliveItsCenterAndEndOnAnyThread)
{
    auto center = std::make_unique<NotificationCenter>();
    auto observation = center->addObserver("n", [](const Notification&) {});
    std::thread poster([&] {
        for (int i = 0; i < 500; ++i)
            center->post("n");
    });
    for (int i = 0; i < 500; ++i)
        observation = center->addObserver("n", [](const Notification&) {});
    poster.join();
    center.reset();
    observation.reset();
}
