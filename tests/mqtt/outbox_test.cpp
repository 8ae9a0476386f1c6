// The device's outgoing queue: answers are never dropped, events keep the latest state per
// topic and the oldest event goes first when the queue is full.
#include "outbox.h"

#include <gtest/gtest.h>

namespace dme {
namespace mqtt {
namespace {

Message named(const std::string& topic, const std::string& payload) {
    Message message;
    message.topic = topic;
    message.payload = payload;
    return message;
}

std::vector<std::string> drain(Outbox& outbox) {
    std::vector<std::string> taken;
    while (std::optional<Message> message = outbox.pop()) {
        taken.push_back(message->topic + "=" + message->payload);
    }
    return taken;
}

TEST(Outbox, MessagesLeaveInTheOrderTheyCame) {
    Outbox outbox(8);
    outbox.pushAnswer(named("a", "1"));
    outbox.pushEvent(named("e", "2"));
    outbox.pushAnswer(named("b", "3"));
    EXPECT_EQ(drain(outbox), (std::vector<std::string>{"a=1", "e=2", "b=3"}));
}

TEST(Outbox, AnEventReplacesTheWaitingEventOfItsTopicInPlace) {
    Outbox outbox(8);
    outbox.pushEvent(named("e", "old"));
    outbox.pushAnswer(named("a", "1"));
    EXPECT_FALSE(outbox.pushEvent(named("e", "new")));
    EXPECT_EQ(drain(outbox), (std::vector<std::string>{"e=new", "a=1"}));
}

TEST(Outbox, AFullQueueDropsItsOldestEvent) {
    Outbox outbox(2);
    outbox.pushAnswer(named("a", "1"));
    outbox.pushEvent(named("e1", "x"));
    outbox.pushEvent(named("e2", "y"));
    EXPECT_TRUE(outbox.pushEvent(named("e3", "z")));
    EXPECT_EQ(outbox.events(), 2u);
    EXPECT_EQ(drain(outbox), (std::vector<std::string>{"a=1", "e2=y", "e3=z"}));
}

TEST(Outbox, AnswersAreNeverDropped) {
    Outbox outbox(1);
    for (int i = 0; i < 100; ++i) outbox.pushAnswer(named("a", std::to_string(i)));
    outbox.pushEvent(named("e", "x"));
    EXPECT_TRUE(outbox.pushEvent(named("f", "y")));
    EXPECT_EQ(outbox.size(), 101u);
    EXPECT_EQ(drain(outbox).back(), "f=y");
}

TEST(Outbox, DroppingEventsKeepsTheAnswers) {
    Outbox outbox(8);
    outbox.pushEvent(named("e", "x"));
    outbox.pushAnswer(named("a", "1"));
    outbox.dropEvents();
    EXPECT_EQ(outbox.events(), 0u);
    EXPECT_EQ(drain(outbox), (std::vector<std::string>{"a=1"}));
}

}  // namespace
}  // namespace mqtt
}  // namespace dme
