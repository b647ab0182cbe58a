#include "threads/tools.h"

namespace {

using namespace threads;

TEST(HandleThreads, CopiesAndDropsOnAllThreadsBringTheCountBack)
{
    ktPtrHandle_const<Shared> handle(new Shared);
    onEachThread([&handle](int) {
        for (int i = 0; i < 200000; ++i) {
            const ktPtrHandle_const<Shared> copy(handle);
            ktPtrHandle_const<Shared> assigned;
            assigned = copy;
        }
    });
    EXPECT_EQ(handle->refCount(), 1);
    EXPECT_EQ(Shared::alive, 1);
    std::thread last([&handle] { handle = nullptr; });
    const std::thread::id idOfLast = last.get_id();
    last.join();
    EXPECT_EQ(Shared::alive, 0);
    EXPECT_EQ(Shared::diedOn.load(), idOfLast);
}

TEST(HandleThreads, LastDropMayComeFromAnyThread)
{
    for (int round = 0; round < 100; ++round) {
        std::vector<ktPtrHandle<Shared>> handles(numThreads, new Shared);
        onEachThread([&handles](int i) { handles[static_cast<std::size_t>(i)] = nullptr; });
        EXPECT_EQ(Shared::alive, 0) << round;
        EXPECT_NE(Shared::diedOn.load(), std::this_thread::get_id());
    }
}

TEST(HandleThreads, WhatOtherThreadsWroteIsSeenByTheOneThatDestroys)
{
    struct Tally : ktRepBase {
        explicit Tally(long& target) : sum(target) {}
        ~Tally() override
        {
            for (const long part : parts) {
                sum += part;
            }
        }
        long parts[numThreads] = {};
        long& sum;
    };
    long sum = 0;
    std::vector<ktPtrHandle<Tally>> handles(numThreads, new Tally(sum));
    onEachThread([&handles](int i) {
        ktPtrHandle<Tally> mine = std::move(handles[static_cast<std::size_t>(i)]);
        mine->parts[i] = i + 1;
    });
    EXPECT_EQ(sum, 36);
}

std::string storeTwice(ktPtrHandle<Shared> shared)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    const ktArchive::Pass pass(archive);
    archive || shared || shared;
    return out.str();
}

TEST(HandleThreads, ObjectsAreStoredAndLoadedOnAllThreadsAtOnce)
{
    ktPtrHandle<Shared> shared(new Shared);
    shared->number = 7;
    const std::string expected = storeTwice(shared);
    std::atomic<int> wrong{0};
    onEachThread([&](int) {
        for (int i = 0; i < 1000; ++i) {
            const std::string bytes = storeTwice(shared);
            std::istringstream in(bytes);
            ktArchive archive(static_cast<std::istream&>(in));
            const ktArchive::Pass pass(archive);
            ktPtrHandle<Shared> first;
            ktPtrHandle<Shared> second;
            archive || first || second;
            if (bytes != expected || first != second || first->number != 7) {
                ++wrong;
            }
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(Shared::alive, 1);
}

TEST(HandleThreads, RegistryAndConvertersAreReadOnAllThreadsAtOnce)
{
    std::atomic<int> wrong{0};
    onEachThread([&wrong](int) {
        for (int i = 0; i < 1000; ++i) {
            if (kt_Instantiator::find("Shared") != &sharedEntry ||
                kt_Instantiator::find(typeid(Shared)) != &sharedEntry) {
                ++wrong;
            }
            try {
                kfThrowExceptionOnFailure(static_cast<long>(0x80FFFFE1UL));
                ++wrong;
            } catch (const ktFailure&) {
            }
        }
    });
    EXPECT_EQ(wrong, 0);
}

/// A room in which entries and converters come and go, as those of a library do that is loaded and unloaded: nothing is left of
/// one that has gone.
TEST(HandleThreads, RegistryIsReadWhileEntriesLeaveIt)
{
    std::atomic<int> wrong{0};
    onEachThread([&wrong](int thread) {
        alignas(kt_Instantiator) unsigned char room[sizeof(kt_Instantiator)];
        for (int i = 0; i < 5000; ++i) {
            if (thread % 2 == 0) {
                auto* guest = new (room) kt_Instantiator(typeid(int), &Shared::make, "Guest");
                guest->~kt_Instantiator();
                std::memset(room, 0, sizeof room);
            } else if (kt_Instantiator::find("Shared") != &sharedEntry ||
                       kt_Instantiator::find(typeid(Shared)) != &sharedEntry) {
                ++wrong;
            }
        }
    });
    EXPECT_EQ(wrong, 0);
}

void returnsAtOnce(long) {}

TEST(HandleThreads, ConvertersAreAskedWhileOthersLeave)
{
    constexpr long group = 0x3FFFFFE;
    std::atomic<int> wrong{0};
    onEachThread([&wrong](int thread) {
        for (int i = 0; i < 2000; ++i) {
            if (thread % 2 == 0) {
                kfRegisterExceptionConverter(group, &returnsAtOnce);
                kfUnregisterExceptionConverter(group, &returnsAtOnce);
            } else {
                try {
                    kfThrowExceptionOnFailure(static_cast<long>(0xFFFFFFC1UL));
                    ++wrong;
                } catch (const ktFailure&) {
                }
            }
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(HandleThreads, SharedObjectsAreStoredOnceAPassThoughAllThreadsMeetThemFirst)
{
    std::atomic<int> wrong{0};
    for (int round = 0; round < 200; ++round) {
        const ktPtrHandle<Shared> shared(new Shared);
        const std::string expected = storeTwice(new Shared);
        onEachThread([&](int) { wrong += storeTwice(shared) != expected ? 1 : 0; });
    }
    EXPECT_EQ(wrong, 0);
}

}  // namespace
