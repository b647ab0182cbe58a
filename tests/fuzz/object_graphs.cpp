// Graphs of objects that share parts, built as the input says: stored, loaded, equal, and stored to the same bytes.

#include "object_graph.h"

#include "damage/battery.h"
#include "support/streams.h"

#include <algorithm>
#include <memory>
#include <sstream>

namespace {

using namespace object_graph;
using kt_test::BrokenPromise;

void promise(bool kept, const char* what)
{
    if (!kept) {
        throw BrokenPromise(what);
    }
}

// Equality. Training can make a NaN of infinite measurements, which equals nothing, not even itself.

template <class T>
bool equal(const T& a, const T& b)
{
    return a == b;
}
bool equal(const ktPatternDistanceMetric& a, const ktPatternDistanceMetric& b)
{
    return a.isEquivalent(b);
}
bool equal(const kt_ProbabilityDensityFunction& a, const kt_ProbabilityDensityFunction& b)
{
    return a.isEquivalent(b);
}
bool equal(const kt_CategoryModel& a, const kt_CategoryModel& b)
{
    return dynamic_cast<const kt_CategoryModelBayesian&>(a) == dynamic_cast<const kt_CategoryModelBayesian&>(b);
}
bool equal(const kt_Classifier& a, const kt_Classifier& b)
{
    // Decision trees that are not there cannot be compared.
    return a.isTrained() ? a.isEquivalent(b) : !b.isTrained();
}
bool equal(const ktClassifierTrainParams& a, const ktClassifierTrainParams& b)
{
    const auto* knn = dynamic_cast<const ktClassifierTrainParamsKNN*>(&a);
    const auto* bayesian = dynamic_cast<const ktClassifierTrainParamsBayesian*>(&a);
    return knn != nullptr ? *knn == dynamic_cast<const ktClassifierTrainParamsKNN&>(b)
                          : *bayesian == dynamic_cast<const ktClassifierTrainParamsBayesian&>(b);
}
template <class T>
bool equal(const ktPtrHandle<T>& a, const ktPtrHandle<T>& b)
{
    return a && b ? equal(*a, *b) : !a && !b;
}

template <class T>
void promiseEqual(const std::vector<T>& loaded, const std::vector<T>& stored)
{
    promise(loaded.size() == stored.size(), "as many are loaded as were stored");
    for (std::size_t i = 0; i < stored.size(); ++i) {
        promise(equal<T>(loaded[i], stored[i]) == equal<T>(stored[i], stored[i]),
                "what is loaded equals what was stored");
    }
}
template <class T>
void promiseEqual(const Handles<T>& loaded, const Handles<T>& stored)
{
    promise(loaded.size() == stored.size(), "as many are loaded as were stored");
    for (std::size_t i = 0; i < stored.size(); ++i) {
        promise(equal(loaded[i], stored[i]) == equal(stored[i], stored[i]), "what is loaded equals what was stored");
        for (std::size_t j = 0; j < i; ++j) {
            promise((loaded[i] == loaded[j]) == (stored[i] == stored[j]), "what was shared is shared");
        }
    }
}

void promiseEqual(const Graph& loaded, const Graph& stored)
{
    promiseEqual(loaded.patterns, stored.patterns);
    promiseEqual(loaded.providers, stored.providers);
    promiseEqual(loaded.metrics, stored.metrics);
    promiseEqual(loaded.predicates, stored.predicates);
    promiseEqual(loaded.trees, stored.trees);
    promiseEqual(loaded.params, stored.params);
    promiseEqual(loaded.densities, stored.densities);
    promiseEqual(loaded.models, stored.models);
    promiseEqual(loaded.classifiers, stored.classifiers);
    promiseEqual(loaded.tools, stored.tools);
    promiseEqual(loaded.costs, stored.costs);
    promiseEqual(loaded.frequencies, stored.frequencies);
    promiseEqual(loaded.types, stored.types);
    promiseEqual(loaded.results, stored.results);
    promiseEqual(loaded.rules, stored.rules);
    promise(loaded.texts == stored.texts && loaded.flags == stored.flags && loaded.numbers == stored.numbers &&
                loaded.labels == stored.labels && loaded.words == stored.words,
            "plain values are what they were");
}

template <class T>
std::string bytesOf(T& value)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    archive || value;
    return out.str();
}

void load(Graph& graph, std::istream& in)
{
    ktArchive archive(in);
    archive || graph;
}

/// Runs an operation that must end in this exception.
template <class Exception, class Operation>
void promiseThrown(Operation operation, const char* what)
{
    bool thrown = false;
    try {
        operation();
    } catch (const Exception&) {
        thrown = true;
    }
    promise(thrown, what);
}

// Operations that archives refuse, on a graph that is not changed by them.

/// A sink and a source that end, or throw, somewhere.
void failStreams(Graph& graph, const std::string& bytes, Input& input)
{
    const std::size_t limit = (input.byte() * 256 + input.byte()) % bytes.size();
    const kt_test::AtLimit atLimit = input.flag() ? kt_test::AtLimit::throws : kt_test::AtLimit::refuses;
    kt_test::LimitedSink sink(limit, atLimit);
    ktArchive storing(sink);
    promiseThrown<ktArchive::StreamFailed>([&] { storing || graph; }, "a sink that fails is told");
    promise(sink.bytes() == bytes.substr(0, limit), "a sink gets all bytes up to where it fails");
    kt_test::BlindSource source(bytes, limit, atLimit);
    Graph loaded;
    promiseThrown<ktArchive::Errors>([&] { load(loaded, source); }, "a source that fails is told");
    std::istringstream whole(bytes);
    load(loaded, whole);
    promise(bytesOf(loaded) == bytes, "what a load left behind can be loaded");
    std::istringstream bad(bytes);
    bad.setstate(std::ios::badbit);
    promiseThrown<ktArchive::StreamFailed>([&] { load(loaded, bad); }, "a bad source is told");
}

void storeTooLarge(std::ostream& out)
{
    if (sizeof(long) == 4) {
        return;
    }
    ktArchive archive(out);
    for (long value : {std::numeric_limits<long>::max(), std::numeric_limits<long>::min()}) {
        promiseThrown<ktArchive::OutOfRange>([&] { archive || value; }, "a large long is told");
        auto bits = static_cast<unsigned long>(value);
        promiseThrown<ktArchive::OutOfRange>([&] { archive || bits || bits; }, "a large unsigned long is told");
        promiseThrown<ktArchive::OutOfRange>([&] { archive.count(bits, 1); }, "a large count is told");
    }
}

void storeInPlaceAndByPointer(std::ostream& out, Graph& graph, Input& input)
{
    ktArchive archive(out);
    const ktPtrHandle<ktFeaturePattern> pattern(new ktFeaturePattern(*graph.patterns.front()));
    const bool inPlaceFirst = input.flag();
    promiseThrown<ktArchive::Conflict>(
        [&] {
            const ktArchive::Pass pass(archive);
            ktPtrHandle<ktFeaturePattern> handle = pattern;
            if (inPlaceFirst) {
                archive || *pattern || handle;
            } else {
                archive || handle || *pattern;
            }
        },
        "an object in place and by pointer is a conflict");
}

/// In no registry.
class Stranger : public ktFeaturePattern {};

void storeStranger(std::ostream& out)
{
    ktArchive archive(out);
    ktPtrHandle<ktFeaturePattern> stranger(new Stranger);
    promiseThrown<ktArchive::Corrupt>([&] { archive || stranger; }, "a class that is not registered is told");
}

/// Stored object by object, in passes of two archives that are open at once, with objects that die meanwhile.
void storeInManyPasses(std::ostream& out, Graph& graph, Input& input)
{
    std::ostringstream otherOut;
    ktArchive archive(out);
    ktArchive other(static_cast<std::ostream&>(otherOut));
    const ktArchive::Pass pass(archive);
    for (ktPtrHandle<const ktFeaturePattern>& pattern : graph.patterns) {
        if (pattern && input.flag()) {
            const ktArchive::Pass inner(other);
            ktPtrHandle<ktFeaturePattern> dies(new ktFeaturePattern(*pattern));
            other || dies || pattern;
        }
        archive || pattern;
    }
}

void storeShallow(std::ostream& out, Graph& graph, Input& input)
{
    ktArchive archive(out);
    archive.maxDepth(static_cast<long>(input.byte() % 4));
    try {
        archive || graph;
    } catch (const ktArchive::TooDeep&) {
    }
}

void refuse(Graph& graph, const std::string& bytes, Input& input)
{
    std::ostringstream out;
    switch (input.byte() % 6) {
    case 0:
        return storeTooLarge(out);
    case 1:
        return storeInPlaceAndByPointer(out, graph, input);
    case 2:
        return storeStranger(out);
    case 3:
        return storeInManyPasses(out, graph, input);
    case 4:
        return storeShallow(out, graph, input);
    default:
        return failStreams(graph, bytes, input);
    }
}

// What the graphs do not hold: passes that overlap, objects that die inside them or have no count, classes that come and go.

/// A class of the target's own. It can lead back to itself.
class Link : public ktPersistent, public ktRepBase {
public:
    ktPtrHandle<Link> next;
    static ktPersistent* make() { return new Link; }
    static ktPersistent* makeNothing() { return nullptr; }

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
            ktArchive::checkVersion(version);
            archive || next;
        });
    }
};

void storeAndLoadLinks()
{
    auto entry = std::make_unique<kt_Instantiator>(typeid(Link), &Link::make, "Link");
    const ktPtrHandle<Link> link(new Link);
    ktPtrHandle<Link> handle = link;
    const std::string bytes = bytesOf(handle);
    link->next = link;
    promiseThrown<ktArchive::Conflict>([&] { bytesOf(handle); }, "an object that leads back to itself is told");
    link->next = nullptr;
    {
        const kt_Instantiator newer(typeid(Link), &Link::makeNothing, "Link");
        std::istringstream in(bytes);
        ktArchive archive(static_cast<std::istream&>(in));
        promiseThrown<ktBadPointer>([&] { archive || handle; }, "a factory that makes nothing is told");
        entry.reset();
    }
    handle = link;
    promiseThrown<ktArchive::Corrupt>([&] { bytesOf(handle); }, "a class that is gone is told");
}

/// A failure that is on its way when the sink fails too goes on.
void failTwice(Graph& graph)
{
    kt_test::LimitedSink sink(4, kt_test::AtLimit::throws);
    ktArchive archive(sink);
    ktPtrHandle<ktFeaturePattern> stranger(new Stranger);
    promiseThrown<ktArchive::Corrupt>(
        [&] {
            const ktArchive::Pass outer(archive);
            const ktArchive::Pass inner(archive);
            archive || graph.patterns || stranger;
        },
        "a class that is not registered is told, also where the sink fails");
}

void overlapPasses(Graph& graph)
{
    std::ostringstream out;
    std::ostringstream otherOut;
    ktArchive archive(static_cast<std::ostream&>(out));
    ktArchive other(static_cast<std::ostream&>(otherOut));
    auto outer = std::make_unique<ktArchive::Pass>(archive);
    const auto again = std::make_unique<ktArchive::Pass>(archive);
    auto between = std::make_unique<ktArchive::Pass>(other);
    {
        ktPtrHandle<ktClassifierTrainParams> dies = graph.params.front()->clone();
        archive || dies || graph.texts;
    }
    outer.reset();
    archive || graph.texts;
    between.reset();
    promise(otherOut.str().empty(), "an archive that was asked for nothing stores nothing");
}

/// Errors have no count: they belong to the caller that loads them, and may be destroyed before the pass ends.
void storeAndLoadErrors()
{
    ktClassifierDefs::BadParams errors[] = {ktClassifierDefs::BadParams("one"), ktClassifierDefs::BadParams("another")};
    std::stringstream stream;
    ktPersistent* ignored = nullptr;
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        const ktArchive::Pass pass(archive);
        ktPersistent::serializePointer(archive, &errors[0], ignored);
        ktPersistent::serializePointer(archive, &errors[1], ignored);
    }
    ktArchive archive(static_cast<std::istream&>(stream));
    const ktArchive::Pass pass(archive);
    for (const ktClassifierDefs::BadParams& error : errors) {
        ktPersistent* loaded = nullptr;
        ktPersistent::serializePointer(archive, nullptr, loaded);
        const std::unique_ptr<ktPersistent> owner(loaded);
        const auto* same = dynamic_cast<const ktClassifierDefs::BadParams*>(loaded);
        promise(same != nullptr && same->message() == error.message(), "an error is loaded as it was stored");
    }
}

/// An object that is assigned inside a pass is stored again there. A loaded one is still what references mean.
void assignInsidePasses()
{
    std::stringstream stream;
    ktFeaturePattern earlier({0.0}, {});
    bytesOf(earlier);
    {
        ktArchive archive(static_cast<std::ostream&>(stream));
        const ktArchive::Pass pass(archive);
        ktPtrHandle<ktFeaturePattern> pattern(new ktFeaturePattern({1.0}, {}));
        earlier = ktFeaturePattern({2.0}, {});
        archive || pattern || earlier;
        *pattern = earlier;
        archive || pattern || pattern;
    }
    ktArchive archive(static_cast<std::istream&>(stream));
    const ktArchive::Pass pass(archive);
    ktPtrHandle<ktFeaturePattern> first;
    ktPtrHandle<ktFeaturePattern> second;
    ktPtrHandle<ktFeaturePattern> third;
    ktFeaturePattern between;
    archive || first || between || second;
    const bool isAsStored = first->featureMeasurement(0, true) == 1.0 && between == *second;
    *second = *first;
    archive || third;
    promise(isAsStored && second == third && first != second, "an object that was assigned is stored again");
}

/// From a stream without a length a long vector grows while it is loaded, and its elements move.
void loadLongVector()
{
    std::vector<ktFeaturePattern> patterns(300, ktFeaturePattern({1.0}, {}));
    std::ostringstream out;
    ktArchive storing(static_cast<std::ostream&>(out));
    {
        const ktArchive::Pass pass(storing);
        storing || patterns || patterns;
    }
    const std::string bytes = out.str();
    kt_test::BlindSource blind(bytes);
    ktArchive archive(blind);
    const ktArchive::Pass pass(archive);
    std::vector<ktFeaturePattern> loaded;
    archive || loaded || loaded;
    promise(loaded == patterns, "a long vector is the same from every kind of stream");
}

void beside(Graph& graph, Input& input)
{
    switch (input.byte() % 4) {
    case 0:
        return storeAndLoadLinks();
    case 1:
        return failTwice(graph);
    case 2:
        assignInsidePasses();
        return overlapPasses(graph);
    default:
        loadLongVector();
        return storeAndLoadErrors();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The last bytes say how the graph is put to the test, all others how it is built.
    const std::size_t numLast = std::min<std::size_t>(size, 8);
    Input input(data, size - numLast);
    Input last(data + (size - numLast), numLast);
    Graph graph = Builder(input).build();
    std::string bytes;
    try {
        bytes = bytesOf(graph);
    } catch (const ktArchive::TooDeep&) {
        return 0;
    }
    Graph loaded;
    std::istringstream in(bytes);
    load(loaded, in);
    promise(in.rdbuf()->in_avail() == 0, "loading takes all that storing wrote");
    promiseEqual(loaded, graph);
    promise(bytesOf(loaded) == bytes, "what is loaded is stored to the same bytes");
    // Over what is there, from a stream without a length.
    kt_test::BlindSource blind(bytes);
    load(loaded, blind);
    promise(bytesOf(loaded) == bytes, "and so is what is loaded over something else");
    refuse(graph, bytes, last);
    beside(graph, last);
    promise(bytesOf(graph) == bytes, "storing changes nothing, also where it fails");
    return 0;
}
