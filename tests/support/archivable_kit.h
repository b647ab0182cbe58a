#pragma once

#include "allocations.h"
#include "archives.h"
#include "bytes.h"
#include "damage.h"
#include "failures.h"
#include "golden.h"

#include <gtest/gtest.h>
#include <kt/foundation.h>

#include <cstddef>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

// What must hold for every class that an archive can store. A test program describes each of its classes once and lists
// them in one file, archivable_test.cpp:
//
//     struct Costs : kt_test::ArchivableCase<ktClassifierCosts> {
//         static constexpr const char* name = "ktClassifierCosts";
//         static std::vector<ktClassifierCosts> samples();
//     };
//     using Values = ::testing::Types<Costs, ...>;
//     INSTANTIATE_TYPED_TEST_SUITE_P(Clastool, Archivable, Values, kt_test::CaseNames);
//
// Classes derived from ktPersistent that the registry knows are listed for ArchivableByPointer too, and those with a
// `clone()` for Cloneable.
//
// Running out of memory is tested in trust/allocation_scenarios_*.cpp, which names each class too.
//
// damage/damage_test.cpp damages all golden archives. A damaged archive may load; damage/battery_*.cpp use what it loads.
//
// The golden archive of a class holds its samples, each in a pass of its own: by pointer where the class is registered,
// else in place. Samples therefore never change once their archive is stored; a class may get a new case beside the old.

namespace kt_test {

/// What a case gives beside `name`, the class's name as archives know it, and `samples()`, at least two values of which no
/// two are equal and none holds a NaN.
template <class T>
struct ArchivableCase {
    using Class = T;

    static bool equal(const T& a, const T& b) { return a == b; }

    /// What the exception about an unknown version of a layer says.
    struct Layer {
        const char* where = nullptr;
        int line = 0;
    };
    /// The layers whose versions an archive begins with: mostly the class's own and that of its base.
    static std::vector<Layer> layers() { return {{}, {}}; }
    /// A base whose `serialize_` is to be asked too.
    using Base = void;

    /// Whether an object assigned to itself keeps its value.
    static constexpr bool keepsValueWhenAssignedToItself = true;
};

/// The class's name without its namespace.
inline std::string plainName(const std::string& name)
{
    return name.substr(name.rfind(':') + 1);
}

struct CaseNames {
    template <class Case>
    static std::string GetName(int)
    {
        return plainName(Case::name);
    }
};

/// Archives an object in the form that golden archives have.
template <class Case>
void archiveGolden(ktArchive& archive, typename Case::Class& value)
{
    using T = typename Case::Class;
    if constexpr (std::is_base_of_v<ktPersistent, T>) {
        Owner<T> owner(archive.isStoring() ? new T(value) : nullptr);
        archiveByPointer(archive, owner);
        if (archive.isLoading()) {
            if (!owner) {
                throw ktBadPointer();
            }
            value = *owner;
        }
    } else {
        archive || value;
    }
}

template <class Case>
std::string storeSamples()
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    for (typename Case::Class& sample : Case::samples()) {
        archiveGolden<Case>(archive, sample);
    }
    return out.str();
}

}  // namespace kt_test

template <class Case>
class Archivable : public ::testing::Test {
protected:
    using Value = typename Case::Class;

    static void expectEqual(const Value& a, const Value& b)
    {
        EXPECT_TRUE(Case::equal(a, b));
        EXPECT_TRUE(Case::equal(b, a));
    }

    const std::vector<Value> samples_ = Case::samples();
    /// A value that none of the tests changes on the way to `samples_[i]`: the sample before it.
    const Value& otherThan(std::size_t i) const { return samples_[(i + samples_.size() - 1) % samples_.size()]; }
};

TYPED_TEST_SUITE_P(Archivable);

TYPED_TEST_P(Archivable, SamplesDiffer)
{
    ASSERT_GE(this->samples_.size(), 2u);
    for (std::size_t i = 0; i < this->samples_.size(); ++i) {
        for (std::size_t j = 0; j < this->samples_.size(); ++j) {
            EXPECT_EQ(TypeParam::equal(this->samples_[i], this->samples_[j]), i == j) << i << " and " << j;
        }
    }
}

TYPED_TEST_P(Archivable, CopyIsEqualAndIndependent)
{
    for (std::size_t i = 0; i < this->samples_.size(); ++i) {
        SCOPED_TRACE(i);
        typename TypeParam::Class original(this->samples_[i]);
        const typename TypeParam::Class copy(original);
        this->expectEqual(copy, original);
        original = this->otherThan(i);
        this->expectEqual(copy, this->samples_[i]);
    }
}

TYPED_TEST_P(Archivable, AssignedObjectIsEqualAndIndependent)
{
    for (std::size_t i = 0; i < this->samples_.size(); ++i) {
        SCOPED_TRACE(i);
        typename TypeParam::Class original(this->samples_[i]);
        typename TypeParam::Class assigned(this->otherThan(i));
        EXPECT_EQ(&(assigned = original), &assigned);
        this->expectEqual(assigned, original);
        original = this->otherThan(i);
        this->expectEqual(assigned, this->samples_[i]);
    }
}

TYPED_TEST_P(Archivable, AssignedToItselfKeepsItsValueUnlessDocumented)
{
    for (const auto& sample : this->samples_) {
        typename TypeParam::Class value(sample);
        const typename TypeParam::Class& same = value;
        value = same;
        const typename TypeParam::Class expected =
            TypeParam::keepsValueWhenAssignedToItself ? sample : typename TypeParam::Class();
        this->expectEqual(value, expected);
    }
}

TYPED_TEST_P(Archivable, StoredInPlaceAndLoadedIsEqual)
{
    using Class = typename TypeParam::Class;
    for (std::size_t i = 0; i < this->samples_.size(); ++i) {
        SCOPED_TRACE(i);
        const Class& sample = this->samples_[i];
        const std::string bytes = kt_test::store(sample);
        this->expectEqual(kt_test::load<Class>(bytes), sample);
        this->expectEqual(kt_test::loadBlind<Class>(bytes), sample);
        Class over(this->otherThan(i));
        kt_test::loadInto(over, bytes);
        this->expectEqual(over, sample);
        EXPECT_EQ(kt_test::toHex(kt_test::store(over)), kt_test::toHex(bytes));
    }
}

TYPED_TEST_P(Archivable, AssignedInsideAPassIsStoredAgain)
{
    using Class = typename TypeParam::Class;
    std::ostringstream out;
    {
        ktArchive archive(static_cast<std::ostream&>(out));
        const ktArchive::Pass pass(archive);
        Class value(this->samples_.front());
        archive || value;
        value = this->samples_.back();
        archive || value;
    }
    std::istringstream in(out.str());
    ktArchive archive(static_cast<std::istream&>(in));
    const ktArchive::Pass pass(archive);
    Class loaded{};
    archive || loaded;
    this->expectEqual(loaded, this->samples_.front());
    loaded = Class{};
    archive || loaded;
    this->expectEqual(loaded, this->samples_.back());
    EXPECT_EQ(in.rdbuf()->in_avail(), 0);
}

TYPED_TEST_P(Archivable, LongVectorIsTheSameFromEveryKindOfStream)
{
    using Class = typename TypeParam::Class;
    std::vector<Class> values;
    while (values.size() < 40) {
        values.push_back(this->samples_[values.size() % this->samples_.size()]);
    }
    const std::string bytes = kt_test::store(values);
    for (const std::vector<Class>& loaded :
         {kt_test::load<std::vector<Class>>(bytes), kt_test::loadBlind<std::vector<Class>>(bytes)}) {
        ASSERT_EQ(loaded.size(), values.size());
        for (std::size_t i = 0; i < values.size(); ++i) {
            this->expectEqual(loaded[i], values[i]);
        }
    }
}

TYPED_TEST_P(Archivable, VectorOfAnyCountIsLoadedInMemoryInProportion)
{
    using Class = typename TypeParam::Class;
    constexpr std::size_t size = 20000;
    const std::string sample = kt_test::afterHeader(kt_test::store(this->samples_.back()));
    for (const std::string& element : {std::string(1, '\0'), std::string(1, '\xFF'), sample}) {
        std::string elements;
        while (elements.size() < size) {
            elements += element;
        }
        for (const std::size_t count : {elements.size(), elements.size() / 2, std::size_t{0xFFFFFFFFu}}) {
            const std::string bytes = kt_test::archiveHeader() + '\0' + kt_test::littleEndian32(count) + elements;
            for (const bool blind : {false, true}) {
                const kt_test::MemoryWatch watch;
                try {
                    blind ? kt_test::loadBlind<std::vector<Class>>(bytes) : kt_test::load<std::vector<Class>>(bytes);
                } catch (const ktException&) {
                }
                EXPECT_LE(watch.peakBytes(), 64 * bytes.size() + 64 * 1024) << count << (blind ? ", blind" : "");
            }
        }
    }
}

TYPED_TEST_P(Archivable, NewObjectIsStoredAndLoaded)
{
    const typename TypeParam::Class fresh{};
    typename TypeParam::Class over(this->samples_.back());
    kt_test::loadInto(over, kt_test::store(fresh));
    EXPECT_EQ(kt_test::toHex(kt_test::store(over)), kt_test::toHex(kt_test::store(fresh)));
}

TYPED_TEST_P(Archivable, UnknownVersionOfEachLayerIsRefusedBeforeAnythingIsLoaded)
{
    const std::string bytes = kt_test::store(this->samples_.front());
    std::size_t position = kt_test::archiveHeader().size();
    for (const auto& layer : TypeParam::layers()) {
        for (const char* version : {"\x01", "\xFF"}) {
            SCOPED_TRACE(position);
            typename TypeParam::Class over(this->samples_.back());
            kt_test::expectUnknownVersion(
                [&] { kt_test::loadInto(over, kt_test::withBytesAt(bytes, position, version)); }, layer.where,
                layer.line);
            this->expectEqual(over, this->samples_.back());
        }
        ++position;
    }
}

TYPED_TEST_P(Archivable, GoldenArchiveIsWhatIsStored)
{
    kt_test::expectGolden(kt_test::plainName(TypeParam::name), kt_test::storeSamples<TypeParam>());
}

TYPED_TEST_P(Archivable, GoldenArchiveIsLoaded)
{
    std::istringstream in(kt_test::goldenBytes(kt_test::plainName(TypeParam::name)));
    ktArchive archive(static_cast<std::istream&>(in));
    for (const auto& sample : this->samples_) {
        typename TypeParam::Class value{};
        kt_test::archiveGolden<TypeParam>(archive, value);
        this->expectEqual(value, sample);
    }
    EXPECT_EQ(in.rdbuf()->in_avail(), 0);
}

TYPED_TEST_P(Archivable, ObjectWhoseLoadFailedCanBeAssignedAndLoadedAgain)
{
    using Class = typename TypeParam::Class;
    const std::string bytes = kt_test::store(this->samples_.back());
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        SCOPED_TRACE(::testing::Message() << "the first " << size << " bytes");
        Class value(this->samples_.front());
        EXPECT_THROW(kt_test::loadInto(value, bytes.substr(0, size)), ktArchive::Corrupt);
        Class assigned(value);
        assigned = this->samples_.front();
        this->expectEqual(assigned, this->samples_.front());
        kt_test::loadInto(value, bytes);
        this->expectEqual(value, this->samples_.back());
    }
}

TYPED_TEST_P(Archivable, StreamThatFailsAtAnyByteDoesNoHarm)
{
    using Class = typename TypeParam::Class;
    const std::vector<Class>& samples = this->samples_;
    kt_test::failEachByte(
        [&samples](ktArchive& archive) {
            for (const Class& sample : samples) {
                Class value(sample);
                kt_test::archiveGolden<TypeParam>(archive, value);
            }
        },
        [&samples](ktArchive& archive) {
            for (const Class& sample : samples) {
                Class value{};
                kt_test::archiveGolden<TypeParam>(archive, value);
                EXPECT_TRUE(TypeParam::equal(value, sample));
            }
        });
}

TYPED_TEST_P(Archivable, StreamThatFailsAtAnyByteLeavesUsableObjects)
{
    using Class = typename TypeParam::Class;
    const std::vector<Class>& samples = this->samples_;
    std::vector<Class> stored(samples);
    std::vector<Class> loaded(samples.rbegin(), samples.rend());
    kt_test::failEachByte(
        [&](ktArchive& archive) {
            for (std::size_t i = 0; i < samples.size(); ++i) {
                // The same objects again and again: a store that failed changed none of them.
                EXPECT_TRUE(TypeParam::equal(stored[i], samples[i]));
                archive || stored[i];
            }
        },
        [&](ktArchive& archive) {
            for (std::size_t i = 0; i < samples.size(); ++i) {
                archive || loaded[i];
                EXPECT_TRUE(TypeParam::equal(loaded[i], samples[i]));
                loaded[i] = samples[samples.size() - 1 - i];
            }
        });
}

REGISTER_TYPED_TEST_SUITE_P(Archivable, SamplesDiffer, CopyIsEqualAndIndependent, AssignedObjectIsEqualAndIndependent,
                            AssignedToItselfKeepsItsValueUnlessDocumented, StoredInPlaceAndLoadedIsEqual,
                            AssignedInsideAPassIsStoredAgain, LongVectorIsTheSameFromEveryKindOfStream,
                            VectorOfAnyCountIsLoadedInMemoryInProportion, NewObjectIsStoredAndLoaded,
                            UnknownVersionOfEachLayerIsRefusedBeforeAnythingIsLoaded, GoldenArchiveIsWhatIsStored,
                            GoldenArchiveIsLoaded, ObjectWhoseLoadFailedCanBeAssignedAndLoadedAgain,
                            StreamThatFailsAtAnyByteDoesNoHarm, StreamThatFailsAtAnyByteLeavesUsableObjects);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Archivable);

/// The routines of a class's own layer and of its base's, open to a test.
template <class Class, class Base>
struct OpenedLayers : Class {
    using Class::serialize_;
    void serializeBase(ktArchive& archive, unsigned char version)
    {
        if constexpr (std::is_void_v<Base>) {
            Class::serialize_(archive, version);
        } else {
            Base::serialize_(archive, version);
        }
    }
};

template <class Case>
class ArchivableByPointer : public Archivable<Case> {
protected:
    using Value = typename Case::Class;

    /// One handle, this owner, holds the object, and it is of exactly this class.
    static void expectOwnedAlone(const kt_test::Owner<Value>& owner)
    {
        ASSERT_TRUE(static_cast<bool>(owner));
        const Value& object = *owner;
        EXPECT_TRUE(typeid(object) == typeid(Value)) << typeid(object).name();
        if constexpr (std::is_base_of_v<ktRepBase, Value>) {
            EXPECT_EQ(owner->refCount(), 1);
        }
    }
};

TYPED_TEST_SUITE_P(ArchivableByPointer);

TYPED_TEST_P(ArchivableByPointer, RegistryMakesANewObjectByTheNameOfItsClass)
{
    using Class = typename TypeParam::Class;
    const kt_Instantiator* entry = kt_Instantiator::find(std::string(TypeParam::name));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(kt_Instantiator::find(typeid(Class)), entry);
    const std::unique_ptr<ktPersistent> made(entry->make());
    const ktPersistent& object = *made;
    ASSERT_TRUE(typeid(object) == typeid(Class)) << typeid(object).name();
    EXPECT_EQ(kt_test::toHex(kt_test::store(dynamic_cast<const Class&>(object))),
              kt_test::toHex(kt_test::store(Class())));
}

TYPED_TEST_P(ArchivableByPointer, StoredByPointerAndLoadedIsEqualAndHeldOnce)
{
    for (const auto& sample : this->samples_) {
        const auto loaded = kt_test::loadByPointer<typename TypeParam::Class>(kt_test::storeByPointer(sample));
        this->expectOwnedAlone(loaded);
        this->expectEqual(*loaded, sample);
    }
}

TYPED_TEST_P(ArchivableByPointer, SerializeChecksTheVersionBeforeItTouchesTheStream)
{
    OpenedLayers<typename TypeParam::Class, typename TypeParam::Base> object;
    const auto layers = TypeParam::layers();
    const auto& base = std::is_void_v<typename TypeParam::Base> ? layers.front() : layers.back();
    const std::string before = kt_test::store(static_cast<const typename TypeParam::Class&>(object));
    std::ostringstream out;
    ktArchive storing(static_cast<std::ostream&>(out));
    std::istringstream in(kt_test::store(this->samples_.back()));
    ktArchive loading(static_cast<std::istream&>(in));
    for (ktArchive* archive : {&storing, &loading}) {
        for (const auto version : {static_cast<unsigned char>(1), static_cast<unsigned char>(255)}) {
            kt_test::expectUnknownVersion([&] { object.serialize_(*archive, version); }, layers.front().where,
                                          layers.front().line);
            kt_test::expectUnknownVersion([&] { object.serializeBase(*archive, version); }, base.where, base.line);
        }
    }
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(in.tellg(), 0);
    EXPECT_EQ(kt_test::store(static_cast<const typename TypeParam::Class&>(object)), before);
}

TYPED_TEST_P(ArchivableByPointer, CopyIsHeldByNoHandle)
{
    if constexpr (std::is_base_of_v<ktRepBase, typename TypeParam::Class>) {
        const ktPtrHandle_const<typename TypeParam::Class> held(new typename TypeParam::Class(this->samples_.front()));
        const typename TypeParam::Class copy(*held);
        EXPECT_EQ(copy.refCount(), 0);
        EXPECT_EQ(held->refCount(), 1);
    } else {
        EXPECT_EQ(dynamic_cast<const ktRepBase*>(static_cast<const ktPersistent*>(&this->samples_.front())), nullptr);
    }
}

TYPED_TEST_P(ArchivableByPointer, MetTwiceInPlaceInOnePassIsWrittenOnce)
{
    typename TypeParam::Class value(this->samples_.back());
    const std::string once = kt_test::store(value);
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    {
        const ktArchive::Pass pass(archive);
        archive || value || value;
    }
    EXPECT_EQ(kt_test::toHex(out.str()), kt_test::toHex(once));
    archive || value;
    EXPECT_EQ(kt_test::toHex(out.str()), kt_test::toHex(once + kt_test::afterHeader(once))) << "a new pass";
}

// Growing moves the elements, to addresses where the pass has not met them.
TYPED_TEST_P(ArchivableByPointer, LongVectorMetTwiceInOnePassIsThereOnceFromEveryKindOfStream)
{
    using Vector = std::vector<typename TypeParam::Class>;
    const Vector values(600, this->samples_.back());
    kt_test::StoringArchive storing;
    {
        const ktArchive::Pass pass(storing);
        Vector copy(values);
        storing || copy || copy;
    }
    EXPECT_EQ(storing.bytes().size(), kt_test::store(values).size() + 5) << "a version and a count";
    const auto expectLoaded = [&](std::istream& in) {
        ktArchive loading(in);
        const ktArchive::Pass pass(loading);
        Vector loaded;
        loading || loaded || loaded;
        ASSERT_EQ(loaded.size(), values.size());
        this->expectEqual(loaded.front(), values.front());
        this->expectEqual(loaded.back(), values.back());
        EXPECT_EQ(in.rdbuf()->in_avail(), 0);
    };
    std::istringstream in(storing.bytes());
    kt_test::BlindSource blind(storing.bytes());
    expectLoaded(in);
    expectLoaded(blind);
}

TYPED_TEST_P(ArchivableByPointer, MetTwiceInOnePassIsWrittenOnceAndRestoredShared)
{
    using Class = typename TypeParam::Class;
    std::ostringstream out;
    ktArchive storing(static_cast<std::ostream&>(out));
    std::size_t first = 0;
    {
        const ktArchive::Pass pass(storing);
        kt_test::Owner<Class> owner(new Class(this->samples_.back()));
        kt_test::archiveByPointer(storing, owner);
        first = out.str().size();
        kt_test::archiveByPointer(storing, owner);
    }
    EXPECT_EQ(out.str().size(), first + 5) << "a reference takes five bytes";

    std::istringstream in(out.str());
    ktArchive loading(static_cast<std::istream&>(in));
    const ktArchive::Pass pass(loading);
    kt_test::Owner<Class> owner;
    kt_test::archiveByPointer(loading, owner);
    ASSERT_TRUE(static_cast<bool>(owner));
    ktPersistent* again = nullptr;
    ktPersistent::serializePointer(loading, nullptr, again);
    EXPECT_EQ(dynamic_cast<const Class*>(again), owner.get());
}

REGISTER_TYPED_TEST_SUITE_P(ArchivableByPointer, RegistryMakesANewObjectByTheNameOfItsClass,
                            StoredByPointerAndLoadedIsEqualAndHeldOnce,
                            SerializeChecksTheVersionBeforeItTouchesTheStream, CopyIsHeldByNoHandle,
                            MetTwiceInPlaceInOnePassIsWrittenOnce,
                            LongVectorMetTwiceInOnePassIsThereOnceFromEveryKindOfStream,
                            MetTwiceInOnePassIsWrittenOnceAndRestoredShared);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ArchivableByPointer);

template <class Case>
class Cloneable : public Archivable<Case> {
protected:
    using Value = typename Case::Class;

    /// The clone as an object of its own class. The null that another class gives fails the test.
    template <class Handle>
    static const Value& typed(const Handle& clone)
    {
        return dynamic_cast<const Value&>(*clone);
    }
};

TYPED_TEST_SUITE_P(Cloneable);

TYPED_TEST_P(Cloneable, CloneIsEqualOfTheSameClassAndHeldOnce)
{
    for (const auto& sample : this->samples_) {
        const auto clone = sample.clone();
        ASSERT_TRUE(static_cast<bool>(clone));
        EXPECT_EQ(clone->refCount(), 1);
        const auto& object = *clone;
        EXPECT_TRUE(typeid(object) == typeid(typename TypeParam::Class)) << typeid(object).name();
        this->expectEqual(this->typed(clone), sample);
    }
}

TYPED_TEST_P(Cloneable, CloneOutlivesChangesOfTheOriginalAndTheOriginalItself)
{
    using Class = typename TypeParam::Class;
    for (std::size_t i = 0; i < this->samples_.size(); ++i) {
        SCOPED_TRACE(i);
        auto original = std::make_unique<Class>(this->samples_[i]);
        const auto clone = original->clone();
        *original = this->otherThan(i);
        this->expectEqual(this->typed(clone), this->samples_[i]);
        kt_test::loadInto(*original, kt_test::store(this->otherThan(i)));
        this->expectEqual(this->typed(clone), this->samples_[i]);
        original.reset();
        this->expectEqual(this->typed(clone), this->samples_[i]);
    }
}

TYPED_TEST_P(Cloneable, CloneIsFreedWithItsLastHandle)
{
    kt_test::needCounts();
    const auto& sample = this->samples_.back();
    const kt_test::MemoryWatch watch;
    {
        auto clone = sample.clone();
        EXPECT_GT(watch.liveBlocks(), 0);
        const auto second = clone;
        clone = nullptr;
        EXPECT_EQ(second->refCount(), 1);
    }
    EXPECT_EQ(watch.liveBlocks(), 0);
}

REGISTER_TYPED_TEST_SUITE_P(Cloneable, CloneIsEqualOfTheSameClassAndHeldOnce,
                            CloneOutlivesChangesOfTheOriginalAndTheOriginalItself, CloneIsFreedWithItsLastHandle);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Cloneable);
