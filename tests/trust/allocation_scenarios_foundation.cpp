#include "allocation_scenarios.h"

namespace trust {

namespace {

const char* const longText = "a text that is too long for a string to hold without memory of its own";

template <class Error>
void listError(ScenarioList& list, const std::string& name)
{
    list.makes(name + ": made", [] { return Error(longText); });
    list.asks(name + ": copied", Error(longText), [](const Error& error) { return Error(error); });
    list.keeps(
        name + ": assigned", [] { return Error("short"); }, [](Error& error) { error = Error(longText); });
    list.asks(name + ": asked for its message", Error(longText), [](const Error& error) { return error.message(); });
    list.makes(name + ": rethrown as it destroys itself", [] {
        ktException* error = new Error(longText);
        try {
            error->suicideAndRethrow();
        } catch (const Error& caught) {
            return caught.message();
        }
        return std::string("nothing thrown");
    });
    list.storedAndLoaded(name, Error("short"), Error(longText));
}

/// The message of what a failure code is turned into.
std::string messageOfCode(unsigned long code)
{
    try {
        kfThrowExceptionOnFailure(static_cast<long>(code));
    } catch (const ktException& error) {
        return error.message();
    }
    return "nothing thrown";
}

void listFailures(ScenarioList& list)
{
    list.makes("failure code: made an exception", [] { return ktFailure(5).message(); });
    list.makes("failure code: nobody's group", [] { return messageOfCode(0x80FFFFE1UL); });
    list.makes("failure code: density without data", [] { return messageOfCode(0x80000B61UL); });
    list.makes("failure code: density of another size", [] { return messageOfCode(0x80000B62UL); });
    list.makes("archive failure: made", [] { return ktArchive::Corrupt(longText).message(); });
    list.makes("archive failure: version that nobody knows", [] {
        try {
            ktArchive::checkVersion(1, longText, 7);
        } catch (const ktArchive::UnknownVersion& error) {
            return error.message();
        }
        return std::string("nothing thrown");
    });
    list.makes("converter: registered and taken away", [] {
        const kfExceptionConverter converter = [](long) {};
        kfRegisterExceptionConverter(1001, converter);
        kfUnregisterExceptionConverter(1001, converter);
        return 0L;
    });
    const auto expectNotEntered = [](const Nothing&) { EXPECT_EQ(kt_Instantiator::find(typeid(int)), nullptr); };
    list.leaves(
        "registry: class entered", [] { return Nothing(); },
        [](Nothing&) {
            const kt_Instantiator entry(
                typeid(int), []() -> ktPersistent* { return nullptr; }, longText);
        },
        expectNotEntered);
}

/// The bytes of a pass opened by hand in which one object is stored twice.
std::string storedShared(const ktPtrHandle<ktFeaturePattern>& pattern)
{
    kt_test::StoringArchive storing;
    {
        const ktArchive::Pass pass(storing);
        ktPtrHandle<ktFeaturePattern> handle = pattern;
        storing || handle || handle;
    }
    return storing.bytes();
}

void listArchives(ScenarioList& list)
{
    list.storedAndLoaded("text", std::string("short"), std::string(longText));
    list.storedAndLoaded("numbers", std::vector<long>{1}, std::vector<long>(50, 7));
    list.storedAndLoaded("flags", std::vector<bool>{true}, std::vector<bool>(200, true));
    list.storedAndLoaded("texts in lists", std::vector<std::vector<std::string>>{},
                         std::vector<std::vector<std::string>>{{longText}, {"b", longText}});
    list.makes("archive: pass opened", [] {
        kt_test::StoringArchive archive;
        const ktArchive::Pass pass(archive);
        return archive.bytes();
    });
    list.makes("archive: class that nobody knows", [] {
        const std::string bytes = kt_test::archiveHeader() + kt_test::fromHex("03 04 00 00 00") + "none";
        try {
            kt_test::load<ktPtrHandle<ktFeaturePattern>>(bytes);
        } catch (const ktArchive::Corrupt& error) {
            return error.message();
        }
        return std::string("nothing thrown");
    });
    list.asks("archive: null stored", ktPtrHandle<ktFeaturePattern>(),
              [](const ktPtrHandle<ktFeaturePattern>& handle) { return kt_test::store(handle); });
    const ktPtrHandle<ktFeaturePattern> pattern(new ktFeaturePattern({1.0, 2.0}, {1}));
    list.asks("archive: object stored twice in a pass", pattern,
              [](const ktPtrHandle<ktFeaturePattern>& handle) { return storedShared(handle); });
    list.makes("archive: object loaded twice from a pass", [bytes = storedShared(pattern)] {
        std::istringstream in(bytes);
        ktArchive archive(static_cast<std::istream&>(in));
        const ktArchive::Pass pass(archive);
        ktPtrHandle<ktFeaturePattern> first;
        ktPtrHandle<ktFeaturePattern> second;
        archive || first || second;
        return first == second ? 1L : 0L;
    });
}

/// A learning state of two measurements that depend on each other.
ktNormalDensity learnt()
{
    const double values[][2] = {{1.0, 2.0}, {2.0, 1.5}, {4.0, 0.5}};
    const bool valid[] = {true, true};
    ktNormalDensity density;
    for (const double(&row)[2] : values) {
        const ktNormalDensity::Row one{row, valid, 2};
        density.accumulate(&one, 1, 1.0);
    }
    return density;
}

void listNumerics(ScenarioList& list)
{
    list.makes("matrix: made", [] { return ktNMMatrix(3, 3); });
    list.values("matrix", ktNMMatrix(1, 2), ktNMMatrix(3, 3));
    list.values("range", ktRange(), ktRange(1.0, 2.0), Allocates::nothing);
    list.keeps(
        "normal density: first pattern learnt", [] { return ktNormalDensity(); },
        [](ktNormalDensity& density) {
            const double values[] = {1.0, 2.0};
            const bool valid[] = {true, true};
            const ktNormalDensity::Row row{values, valid, 2};
            density.accumulate(&row, 1, 1.0);
        });
    list.keeps(
        "normal density: prepared for its first pattern", [] { return ktNormalDensity(); },
        [](ktNormalDensity& density) { density.prepare(3); });
    const auto other = [] {
        ktNormalDensity density;
        density.restore(ktNMMatrix(3, 1), ktNMMatrix(3, 3), 2);
        return density;
    };
    list.keeps("normal density: restored", other, [from = learnt()](ktNormalDensity& density) {
        density.restore(from.mean(), from.covariance(), from.count());
    });
    list.asks("normal density: copied", learnt(), [](const ktNormalDensity& density) { return density; });
    list.keeps("normal density: assigned", other, [from = learnt()](ktNormalDensity& density) { density = from; });
    list.asks("normal density: evaluated the first time", learnt(), [](const ktNormalDensity& density) {
        const double values[] = {1.0, 2.0};
        const bool valid[] = {true, true};
        // A copy of the state that nobody has evaluated.
        const ktNormalDensity fresh(density);
        double value = 0.0;
        fresh.logDensity({values, valid, 2}, value);
        return value;
    });
    list.makes(
        "random numbers: drawn", [] { return ktRandomUniform(1).next(0.0, 1.0) + ktRandomGaussian(1).next(0.0, 1.0); },
        Allocates::nothing);
}

}  // namespace

void listFoundation(ScenarioList& list)
{
    listError<ktClassifierDefs::BadParams>(list, "BadParams");
    listError<ktClassifierDefs::BadIndex>(list, "BadIndex");
    listError<ktClassifierDefs::BadLabel>(list, "BadLabel");
    listError<ktClassifierDefs::BadMethod>(list, "BadMethod");
    listError<ktClassifierDefs::NotTrained>(list, "NotTrained");
    listError<ktClassifierDefs::NotImplemented>(list, "NotImplemented");
    listError<ktClassifierDefs::BadFeatures>(list, "BadFeatures");
    listError<ktClassifierDefs::InsufficientTrainData>(list, "InsufficientTrainData");
    listFailures(list);
    listArchives(list);
    listNumerics(list);
}

}  // namespace trust
