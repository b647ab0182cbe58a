#include "handlers.h"

namespace {

using namespace handlers;

TEST_F(Attention, GoesOnWithoutAHandler)
{
    EXPECT_EQ(kfCheckAttention(), 0);
}

TEST_F(Attention, SaysWhatTheHandlerSays)
{
    Polls polls;
    kfSetAttentionHandler(&answerOf, &polls);
    EXPECT_EQ(kfCheckAttention(), 0);
    polls.answer = static_cast<long>(0x80000041UL);
    EXPECT_EQ(kfCheckAttention(), static_cast<long>(0x80000041UL));
    EXPECT_EQ(polls.count, 2);
}

TEST_F(Attention, HandlerIsCalledOnTheComputingThread)
{
    Polls polls;
    kfSetAttentionHandler(&answerOf, &polls);
    std::thread::id computing;
    std::thread thread([&] {
        computing = std::this_thread::get_id();
        kfCheckAttention();
    });
    thread.join();
    EXPECT_EQ(polls.thread, computing);
    EXPECT_NE(polls.thread, std::this_thread::get_id());
}

TEST_F(Attention, NullTakesTheHandlerAway)
{
    Polls polls;
    polls.answer = 1;
    kfSetAttentionHandler(&answerOf, &polls);
    kfSetAttentionHandler(nullptr, &polls);
    EXPECT_EQ(kfCheckAttention(), 0);
    EXPECT_EQ(polls.count, 0);
}

TEST_F(Attention, LaterHandlerReplacesTheEarlierOne)
{
    Polls earlier;
    Polls later;
    kfSetAttentionHandler(&answerOf, &earlier);
    kfSetAttentionHandler(&answerOf, &later);
    kfCheckAttention();
    EXPECT_EQ(earlier.count, 0);
    EXPECT_EQ(later.count, 1);
}

}  // namespace
