// Labelled patterns stored into memory and loaded from it: an object for each pattern, held by shared pointer.

#include "kit/kit.h"

#include <cstdint>
#include <sstream>

#ifdef KT_BENCHMARK_PEERS
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/shared_ptr.hpp>
#include <boost/serialization/vector.hpp>
#include <cereal/archives/binary.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/vector.hpp>
#endif

namespace {

struct Case {
    long numPatterns = 0;
    long numMeasurements = 0;

    bool operator==(const Case& other) const
    {
        return numPatterns == other.numPatterns && numMeasurements == other.numMeasurements;
    }
    std::string size() const { return std::to_string(numPatterns) + "x" + std::to_string(numMeasurements); }
};

/// How the library stores and loads its own objects. `Value` is what is stored.
template <class T>
struct Library {
    using Value = T;

    static void store(std::ostream& stream, T& value)
    {
        ktArchive archive(stream);
        archive || value;
    }
    static void load(std::istream& stream, T& value)
    {
        ktArchive archive(stream);
        archive || value;
    }
};

#ifdef KT_BENCHMARK_PEERS
/// The same data model for the other libraries.
struct PlainPattern {
    std::vector<double> measurements;
    std::vector<bool> validity;

    bool operator==(const PlainPattern& other) const
    {
        return measurements == other.measurements && validity == other.validity;
    }
    template <class Archive>
    void serialize(Archive& archive, const unsigned int)
    {
        archive& measurements& validity;
    }
};

struct PlainData {
    std::vector<std::shared_ptr<PlainPattern>> patterns;
    std::vector<std::int32_t> labels;

    bool operator==(const PlainData& other) const
    {
        const auto areEqual = [](const auto& a, const auto& b) { return *a == *b; };
        return labels == other.labels &&
               std::equal(patterns.begin(), patterns.end(), other.patterns.begin(), other.patterns.end(), areEqual);
    }
    template <class Archive>
    void serialize(Archive& archive, const unsigned int)
    {
        archive& patterns& labels;
    }
};

PlainData asPlainData(const LabelledPatterns& data)
{
    PlainData plain;
    for (std::size_t i = 0; i < data.size(); ++i) {
        auto pattern = std::make_shared<PlainPattern>();
        pattern->measurements = data.values(i);
        pattern->validity.assign(data.values(i).size(), true);
        plain.patterns.push_back(pattern);
        plain.labels.push_back(static_cast<std::int32_t>(data.labels[i]));
    }
    return plain;
}

template <class Output, class Input>
struct Peer {
    using Value = PlainData;

    static void store(std::ostream& stream, PlainData& value)
    {
        Output archive(stream);
        archive& value;
    }
    static void load(std::istream& stream, PlainData& value)
    {
        Input archive(stream);
        archive& value;
    }
};

using Cereal = Peer<cereal::BinaryOutputArchive, cereal::BinaryInputArchive>;
using Boost = Peer<boost::archive::binary_oarchive, boost::archive::binary_iarchive>;
#endif

/// A value and its archive. The stream keeps its memory from one archive to the next.
template <class Format>
struct Stored {
    explicit Stored(const typename Format::Value& original) : value(original)
    {
        Format::store(stream, value);
        bytes = static_cast<double>(stream.tellp());
        typename Format::Value loaded;
        Format::load(stream, loaded);
        require(loaded == value, "What is loaded is not what was stored");
    }

    typename Format::Value value;
    std::stringstream stream;
    double bytes = 0.0;
};

ktClassifierTool trainedTool(const ktClassifierDataProviderMemory& provider)
{
    ktClassifierTool tool;
    tool.train(provider, ktClassifierTrainParamsKNN(5));
    return tool;
}

struct Archives {
    explicit Archives(const Case& the) : Archives(drawPatterns(the.numPatterns, the.numMeasurements, 5, 2)) {}
    explicit Archives(const LabelledPatterns& data)
        : library(asProvider(data)),
          tool(trainedTool(library.value))
#ifdef KT_BENCHMARK_PEERS
          ,
          cereal(asPlainData(data)),
          boost(cereal.value)
#endif
    {
    }

    Stored<Library<ktClassifierDataProviderMemory>> library;
    Stored<Library<ktClassifierTool>> tool;
#ifdef KT_BENCHMARK_PEERS
    Stored<Cereal> cereal;
    Stored<Boost> boost;
#endif
};

template <class Format>
void timeStore(benchmark::State& state, Stored<Format>& the)
{
    for (auto _ : state) {
        the.stream.seekp(0);
        Format::store(the.stream, the.value);
    }
    require(static_cast<double>(the.stream.tellp()) == the.bytes, "An archive is larger than the one before");
    state.counters["bytes"] = the.bytes;
}

/// Without the destruction of what was loaded.
template <class Format>
void timeLoad(benchmark::State& state, Stored<Format>& the)
{
    for (auto _ : state) {
        state.PauseTiming();
        {
            typename Format::Value loaded;
            the.stream.seekg(0);
            state.ResumeTiming();
            Format::load(the.stream, loaded);
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    state.counters["bytes"] = the.bytes;
}

void add(const Case& the, const std::string& who, void (*store)(benchmark::State&, Archives&),
         void (*load)(benchmark::State&, Archives&))
{
    const std::string ending = "/" + the.size() + "/" + who;
    addBenchmark("archive/store" + ending,
                 [the, store](benchmark::State& state) { store(state, fixtureOf<Archives>(the)); });
    addBenchmark("archive/load" + ending,
                 [the, load](benchmark::State& state) { load(state, fixtureOf<Archives>(the)); });
}

}  // namespace

void addBenchmarks()
{
    for (const Case& the : {Case{1000, 16}, Case{100000, 16}, Case{1000000, 2}}) {
        add(
            the, "library", [](benchmark::State& state, Archives& all) { timeStore(state, all.library); },
            [](benchmark::State& state, Archives& all) { timeLoad(state, all.library); });
        add(
            the, "library_tool", [](benchmark::State& state, Archives& all) { timeStore(state, all.tool); },
            [](benchmark::State& state, Archives& all) { timeLoad(state, all.tool); });
#ifdef KT_BENCHMARK_PEERS
        add(
            the, "cereal", [](benchmark::State& state, Archives& all) { timeStore(state, all.cereal); },
            [](benchmark::State& state, Archives& all) { timeLoad(state, all.cereal); });
        add(
            the, "boost", [](benchmark::State& state, Archives& all) { timeStore(state, all.boost); },
            [](benchmark::State& state, Archives& all) { timeLoad(state, all.boost); });
#endif
    }
}
