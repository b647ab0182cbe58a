#include "toys.h"

namespace {

using namespace toys;

TEST(RepBase, CountBeginsAtZeroAlsoInACopy)
{
    const ktPtrHandle<Node> handle(new Node(1));
    const Node copy(*handle);
    EXPECT_EQ(copy.refCount(), 0);
    Node assigned;
    assigned = *handle;
    EXPECT_EQ(assigned.refCount(), 0);
    EXPECT_EQ(handle->refCount(), 1);
    *handle = copy;
    EXPECT_EQ(handle->refCount(), 1);
}

TEST(Handle, IsNullByDefault)
{
    const ktPtrHandle<Node> handle;
    EXPECT_TRUE(handle.isNull());
    EXPECT_FALSE(static_cast<bool>(handle));
    EXPECT_EQ(handle.get(), nullptr);
}

TEST(Handle, UseOfANullHandleIsABadPointer)
{
    const ktPtrHandle<Node> handle;
    kt_test::expectThrows<ktBadPointer>("", [&] { static_cast<void>(*handle); });
    kt_test::expectThrows<ktBadPointer>("", [&] { static_cast<void>(handle->number); });
    const ktPtrHandle_const<Node> constHandle;
    kt_test::expectThrows<ktBadPointer>("", [&] { static_cast<void>(*constHandle); });
}

TEST(Handle, CopiesShareAndTheLastOneDestroys)
{
    {
        ktPtrHandle<Node> first(new Node(1));
        EXPECT_EQ(first->refCount(), 1);
        {
            const ktPtrHandle<Node> second(first);
            const ktPtrHandle<Node> third = second;
            EXPECT_EQ(first->refCount(), 3);
            EXPECT_EQ(third.get(), first.get());
        }
        EXPECT_EQ(first->refCount(), 1);
        EXPECT_EQ(Alive<Node>::count, 1);
    }
    EXPECT_EQ(Alive<Node>::count, 0);
}

TEST(Handle, IsMadeFromARawPointerAtAnyTime)
{
    const ktPtrHandle<Node> first = new Node(1);
    Node* raw = first.get();
    const ktPtrHandle<Node> second = raw;
    EXPECT_EQ(raw->refCount(), 2);
}

TEST(Handle, AssignmentCountsTheOldObjectDownAndTheNewOneUp)
{
    ktPtrHandle<Node> handle(new Node(1));
    const ktPtrHandle<Node> other(new Node(2));
    handle = other;
    EXPECT_EQ(handle->number, 2);
    EXPECT_EQ(other->refCount(), 2);
    EXPECT_EQ(Alive<Node>::count, 1);
    handle = nullptr;
    EXPECT_TRUE(handle.isNull());
    EXPECT_EQ(other->refCount(), 1);
}

TEST(Handle, AssigningItsOwnObjectChangesNothing)
{
    ktPtrHandle<Node> handle(new Node(1));
    const ktPtrHandle<Node>& same = handle;
    handle = same;
    EXPECT_EQ(handle->refCount(), 1);
    handle = handle.get();
    EXPECT_EQ(handle->refCount(), 1);
    ktPtrHandle<Node>& self = handle;
    handle = std::move(self);
    EXPECT_EQ(handle->refCount(), 1);
    EXPECT_EQ(Alive<Node>::count, 1);
}

TEST(Handle, CanBeAssignedFromAPartOfItsOldObject)
{
    ktPtrHandle<Node> handle = toys::chain(2);
    handle = handle->children[0];
    EXPECT_EQ(handle->number, 2);
    EXPECT_EQ(handle->refCount(), 1);
    EXPECT_EQ(Alive<Node>::count, 1);
}

TEST(Handle, MovingTakesTheObjectAlong)
{
    ktPtrHandle<Node> from(new Node(1));
    ktPtrHandle<Node> to(std::move(from));
    EXPECT_EQ(to->refCount(), 1);
    ktPtrHandle<Node> next(new Node(2));
    next = std::move(to);
    EXPECT_EQ(next->number, 1);
    EXPECT_EQ(Alive<Node>::count, 1);
    static_assert(std::is_nothrow_move_constructible_v<ktPtrHandle<Node>>);
}

TEST(Handle, SwapExchangesWithoutCounting)
{
    ktPtrHandle<Node> a(new Node(1));
    ktPtrHandle<Node> b(new Node(2));
    a.swap(b);
    EXPECT_EQ(a->number, 2);
    EXPECT_EQ(b->number, 1);
    EXPECT_EQ(a->refCount(), 1);
}

TEST(Handle, ConvertsToABaseAndToConst)
{
    const ktPtrHandle<HeavyNode> heavy(new HeavyNode(1.0));
    const ktPtrHandle<Node> node = heavy;
    const ktPtrHandle_const<Node> constNode = heavy;
    const ktPtrHandle_const<Node> alsoConst = node;
    EXPECT_EQ(heavy->refCount(), 4);
    EXPECT_EQ(node.get(), heavy.get());
    static_assert(!std::is_convertible_v<ktPtrHandle<Node>, ktPtrHandle<HeavyNode>>);
    static_assert(!std::is_convertible_v<ktPtrHandle_const<Node>, ktPtrHandle<Node>>);
    static_assert(!std::is_convertible_v<ktPtrHandle<Node>, bool>);
}

TEST(Handle, ConstHandleGivesConstAccess)
{
    static_assert(std::is_same_v<decltype(*std::declval<ktPtrHandle_const<Node>>()), const Node&>);
    static_assert(std::is_same_v<decltype(std::declval<ktPtrHandle_const<Node>>().operator->()), const Node*>);
    static_assert(std::is_same_v<decltype(std::declval<ktPtrHandle_const<Node>>().get()), const Node*>);
    const ktPtrHandle_const<Node> handle(new Node(3));
    EXPECT_EQ(handle->number, 3);
}

TEST(Handle, IsComparedByPointer)
{
    const ktPtrHandle<Node> a(new Node(1));
    const ktPtrHandle<Node> same = a;
    const ktPtrHandle<Node> equalValue(new Node(1));
    EXPECT_TRUE(a == same);
    EXPECT_FALSE(a != same);
    EXPECT_FALSE(a == equalValue);
    EXPECT_TRUE(a != equalValue);
    EXPECT_TRUE(a == ktPtrHandle_const<Node>(a));
    EXPECT_TRUE(a != nullptr);
    EXPECT_TRUE(ktPtrHandle<Node>() == nullptr);
    EXPECT_TRUE(nullptr == ktPtrHandle<Node>());
}

TEST(Handle, ComparisonWithARawPointerLeavesItsObjectAlone)
{
    const ktPtrHandle<Node> handle(new Node(1));
    HeavyNode withoutAHandle;
    EXPECT_FALSE(handle == &withoutAHandle);
    EXPECT_TRUE(handle != &withoutAHandle);
    EXPECT_FALSE(&withoutAHandle == handle);
    EXPECT_TRUE(&withoutAHandle != handle);
    EXPECT_TRUE(handle == handle.get());
    EXPECT_EQ(Alive<Node>::count, 2);
}

TEST(Handle, VectorsOfHandlesShare)
{
    const ktPtrHandle<Node> node(new Node(1));
    std::vector<ktPtrHandle<Node>> nodes(10, node);
    EXPECT_EQ(node->refCount(), 11);
    nodes.resize(5);
    EXPECT_EQ(node->refCount(), 6);
    nodes.clear();
    EXPECT_EQ(node->refCount(), 1);
}

TEST(Interlocked, DecrementGivesTheNewValue)
{
    std::atomic<std::int32_t> counter{0};
    kfInterlockedIncrement(counter);
    kfInterlockedIncrement(counter);
    EXPECT_EQ(counter, 2);
    EXPECT_EQ(kfInterlockedDecrement(counter), 1);
    EXPECT_EQ(kfInterlockedDecrement(counter), 0);
}

}  // namespace
