#pragma once

#include "support/technique.h"
#include "support/test.h"

// Bayesian objects in states that only an archive can bring about, read and written field by field.

namespace bayes {

using Types = ktClassifierDistributionTypes;
using Indices = std::vector<long>;
using Sets = std::vector<std::vector<long>>;
using Density = ktPtrHandle<kt_ProbabilityDensityFunction>;
using Model = ktPtrHandle<kt_CategoryModel>;
using Params = ktClassifierTrainParamsBayesian;
using OpenBayesian = kt_test::OpenClassifier<kt_ClassifierBayesian>;

/// The bytes of an archive that `write` fills in one pass.
inline std::string stored(const std::function<void(ktArchive&)>& write)
{
    kt_test::StoringArchive archive;
    const ktArchive::Pass pass(archive);
    write(archive);
    return archive.bytes();
}

/// Reads an archive in one pass with `read`, which must take all of it.
inline void readBack(const std::string& bytes, const std::function<void(ktArchive&)>& read)
{
    kt_test::LoadingArchive archive(bytes);
    const ktArchive::Pass pass(archive);
    read(archive);
    EXPECT_EQ(archive.left(), 0) << "bytes that were not read";
}

/// Distribution types as their archive has them, in its order.
struct TypeFields {
    unsigned char version = 0;
    unsigned long defaultType = 0;
    Indices overrideLabels;
    Indices overrideIndices;
    std::vector<unsigned long> overrideTypes;
    Indices dependentLabels;
    Sets dependentSets;

    void archive(ktArchive& archive)
    {
        archive || version || defaultType || overrideLabels || overrideIndices || overrideTypes || dependentLabels ||
            dependentSets;
    }
};

inline TypeFields fieldsOf(const Types& types)
{
    TypeFields fields;
    readBack(kt_test::store(types), [&](ktArchive& archive) { fields.archive(archive); });
    return fields;
}

inline Types typesWith(TypeFields fields)
{
    return kt_test::load<Types>(stored([&](ktArchive& archive) { fields.archive(archive); }));
}

/// Gives one answer to every pattern, and records the calls of all objects of its class. Outside the library, but known to
/// the registry.
class FixedDensity : public kt_ProbabilityDensityFunction {
public:
    struct Note {
        double answer;
        ktFeaturePattern pattern;
    };

    explicit FixedDensity(double answer = 0.0) : answer_(answer) {}

    static inline std::vector<Note> asked;
    static inline std::vector<Note> learnt;
    /// How often `isEquivalent` was called.
    static inline long numCompared = 0;
    /// What `logValue` does before it answers.
    static inline std::function<void(double answer)> during;

    static void forget()
    {
        asked.clear();
        learnt.clear();
        numCompared = 0;
        during = nullptr;
    }

    double logValue(const ktFeaturePattern& pattern) const override
    {
        asked.push_back({answer_, pattern});
        if (during) {
            during(answer_);
        }
        return answer_;
    }
    bool isEquivalent(const kt_ProbabilityDensityFunction& other) const override
    {
        ++numCompared;
        const auto* fixed = dynamic_cast<const FixedDensity*>(&other);
        return fixed != nullptr && fixed->answer_ == answer_;
    }
    void updateWithData(const std::vector<ktFeaturePattern>& patterns) override
    {
        for (const ktFeaturePattern& pattern : patterns) {
            learnt.push_back({answer_, pattern});
        }
    }
    void clear() override {}

    static ktPersistent* make() { return new FixedDensity; }

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
            ktArchive::checkVersion(version);
            kt_ProbabilityDensityFunction::dispatchSerialize(archive);
            archive || answer_;
        });
    }

private:
    double answer_;
};

inline const kt_Instantiator fixedDensityEntry(typeid(FixedDensity), &FixedDensity::make, "bayes::FixedDensity");

/// Tests with densities that give fixed answers.
class WithFixedDensities : public ::testing::Test {
protected:
    void SetUp() override { FixedDensity::forget(); }
    void TearDown() override { FixedDensity::forget(); }
};

/// A category model outside the library.
class ForeignModel : public kt_CategoryModel {
public:
    double matchScore(const ktFeaturePattern&, ktDiagObject*, unsigned long) const override { return -1.0; }
    void adapt(const ktFeaturePattern&, ktDiagObject*, unsigned long) override {}

    static ktPersistent* make() { return new ForeignModel; }

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
            ktArchive::checkVersion(version);
            kt_CategoryModel::dispatchSerialize(archive);
        });
    }
};

inline const kt_Instantiator foreignModelEntry(typeid(ForeignModel), &ForeignModel::make, "bayes::ForeignModel");

/// A model as its archive has it, in its order.
struct ModelFields {
    unsigned char version = 0;
    unsigned char baseVersion = 0;
    long label = 0;
    long numMeasurements = 0;
    Sets groups;
    std::vector<Density> densities;

    void archive(ktArchive& archive)
    {
        archive || version || baseVersion || label || numMeasurements || groups || densities;
    }
};

inline ModelFields fieldsOf(const kt_CategoryModelBayesian& model)
{
    ModelFields fields;
    readBack(kt_test::store(model), [&](ktArchive& archive) { fields.archive(archive); });
    return fields;
}

inline kt_CategoryModelBayesian modelWith(ModelFields fields)
{
    kt_CategoryModelBayesian model;
    kt_test::loadInto(model, stored([&](ktArchive& archive) { fields.archive(archive); }));
    return model;
}

/// A model with a group for each density; the densities are copies, made through the archive.
inline kt_CategoryModelBayesian modelWith(long label, const Sets& groups, const std::vector<Density>& densities)
{
    ModelFields fields;
    fields.label = label;
    for (const Indices& group : groups) {
        fields.numMeasurements += static_cast<long>(group.size());
    }
    fields.groups = groups;
    fields.densities = densities;
    return modelWith(fields);
}

/// A model that gives one score to every pattern.
inline Model scoring(long label, double score)
{
    return new kt_CategoryModelBayesian(modelWith(label, {{0}}, {new FixedDensity(score)}));
}

/// A classifier as its archive has it, in its order.
struct ClassifierFields {
    unsigned char version = 0;
    unsigned char baseVersion = 0;
    ktPtrHandle<ktClassifierTrainParams> params;
    Indices labels;
    std::vector<Model> models;

    void archive(ktArchive& archive) { archive || version || baseVersion || params || labels || models; }
};

inline ClassifierFields fieldsOf(const kt_ClassifierBayesian& classifier)
{
    ClassifierFields fields;
    readBack(kt_test::store(classifier), [&](ktArchive& archive) { fields.archive(archive); });
    return fields;
}

inline const kt_CategoryModelBayesian& modelOf(const ClassifierFields& fields, std::size_t i)
{
    return dynamic_cast<const kt_CategoryModelBayesian&>(*fields.models.at(i));
}

inline OpenBayesian classifierWith(ClassifierFields fields)
{
    OpenBayesian classifier;
    kt_test::loadInto(static_cast<kt_ClassifierBayesian&>(classifier),
                      stored([&](ktArchive& archive) { fields.archive(archive); }));
    return classifier;
}

/// A trained classifier with these models; its parameters are the default ones.
inline OpenBayesian classifierWith(const std::vector<Model>& models)
{
    ClassifierFields fields;
    fields.params = new Params;
    for (const Model& model : models) {
        fields.labels.push_back(model ? model->categoryLabel() : 0);
    }
    fields.models = models;
    return classifierWith(fields);
}

inline OpenBayesian trained(const std::vector<kt_test::Labelled>& rows, const Params& params = Params())
{
    OpenBayesian classifier;
    classifier.train(kt_test::trainingData(rows), params);
    return classifier;
}

/// The answer of a run, which must not throw.
inline ktClassifierResult answer(const kt_Classifier& classifier, const ktFeaturePattern& pattern)
{
    ktClassifierResult result = kt_test::untouchedResult();
    classifier.run(pattern, result);
    return result;
}

/// A density's fields as an archive has them.
struct NormalFields {
    unsigned char version = 0;
    ktNMMatrix mean;
    ktNMMatrix covariance;
    long count = 0;

    void archive(ktArchive& archive) { archive || version || mean || covariance || count; }
};

inline NormalFields fieldsOf(const kt_PDFMultivariateNormal& density)
{
    NormalFields fields;
    readBack(kt_test::store(density), [&](ktArchive& archive) { fields.archive(archive); });
    return fields;
}

inline kt_PDFMultivariateNormal normalWith(NormalFields fields)
{
    kt_PDFMultivariateNormal density;
    kt_test::loadInto(density, stored([&](ktArchive& archive) { fields.archive(archive); }));
    return density;
}

struct BinomialFields {
    unsigned char version = 0;
    long numTrials = 0;
    double theta = 0.0;
    double maximum = 1.0;

    void archive(ktArchive& archive) { archive || version || numTrials || theta || maximum; }
};

inline BinomialFields fieldsOf(const kt_PDFBinomial& density)
{
    BinomialFields fields;
    readBack(kt_test::store(density), [&](ktArchive& archive) { fields.archive(archive); });
    return fields;
}

inline kt_PDFBinomial binomialWith(long numTrials, double theta, double maximum)
{
    BinomialFields fields;
    fields.numTrials = numTrials;
    fields.theta = theta;
    fields.maximum = maximum;
    kt_PDFBinomial density;
    kt_test::loadInto(density, stored([&](ktArchive& archive) { fields.archive(archive); }));
    return density;
}

/// A pattern, not a handle of one as from kt_test::pattern.
inline ktFeaturePattern pattern(const std::vector<double>& values, const Indices& invalid = {})
{
    return {values, invalid};
}

/// Patterns of all valid measurements.
inline std::vector<ktFeaturePattern> patterns(const std::vector<std::vector<double>>& rows)
{
    std::vector<ktFeaturePattern> made;
    for (const std::vector<double>& row : rows) {
        made.emplace_back(row, Indices());
    }
    return made;
}

}  // namespace bayes
