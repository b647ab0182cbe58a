#include "battery_kit.h"

#include <algorithm>

namespace kt_test {

namespace {

using namespace battery;

// Dispatch by the class of an object.

template <class T>
bool useIfClassIs(ktPersistent& object)
{
    if (typeid(object) != typeid(T)) {
        return false;
    }
    auto& value = dynamic_cast<T&>(object);
    copyAndCompare(value);
    useAs(value);
    return true;
}

template <class... T>
struct Classes {
    static bool use(ktPersistent& object) { return (useIfClassIs<T>(object) || ...); }
};

using Registered = Classes<ktClassifierDefs::BadParams, ktClassifierDefs::BadIndex, ktClassifierDefs::BadLabel,
                           ktClassifierDefs::BadMethod, ktClassifierDefs::NotTrained, ktClassifierDefs::NotImplemented,
                           ktClassifierDefs::BadFeatures, ktClassifierDefs::InsufficientTrainData, ktFeaturePattern,
                           Provider, ktClassifierTrainParamsKNN, kt_ClassifierKNN, kt_ClassifierDecisionTree,
                           ktPatternDistanceMetricNorm, ktComparisonPredicate, ktRangePredicate, ktValidityPredicate,
                           ktDecisionTreeNode, ktDecisionTreeLeaf, ktClassifierTrainParamsBayesian,
                           kt_CategoryModelBayesian, kt_PDFMultivariateNormal, kt_PDFBinomial, kt_ClassifierBayesian>;

void useObject(ktPersistent& object)
{
    storeObjectAgain(object);
    promise(Registered::use(object), "every class of the registry has a battery");
    storeObjectAgain(object);
}

// The subjects.

template <class T>
std::string storedBytes(T& value)
{
    std::string bytes;
    stores([&] { bytes = bytesOf(value); });
    return bytes;
}

class ObjectSubject : public Subject {
public:
    void load(ktArchive& archive) override { object_.load(archive); }
    std::string bytes() override
    {
        std::string bytes;
        stores([&] { bytes = object_.get() == nullptr ? "null" : recordOf(*object_.get()); });
        return bytes;
    }
    void use() override
    {
        if (object_.get() != nullptr) {
            useObject(*object_.get());
        }
    }
    void recover(const std::string& good) override
    {
        promise(object_.get() == nullptr, "a load that fails gives no object");
        std::istringstream in(good);
        ktArchive archive(static_cast<std::istream&>(in));
        load(archive);
    }

private:
    AnyObject object_;
};

template <class T>
class ValueSubject : public Subject {
public:
    void load(ktArchive& archive) override { archive || value_; }
    std::string bytes() override { return storedBytes(value_); }
    void use() override
    {
        storeValueAgain(value_);
        copyAndCompare(value_);
        if constexpr (std::is_base_of_v<ktPersistent, T>) {
            useObject(value_);
        } else {
            useAs(value_);
        }
        storeValueAgain(value_);
    }
    void recover(const std::string& good) override
    {
        T copy(value_);
        copy = fresh<T>();
        T used(value_);
        useAs(used);
        loadFrom(value_, good);
        value_ = copy;
        loadFrom(value_, good);
    }

private:
    T value_ = fresh<T>();
};

template <class T>
class HandleSubject : public Subject {
public:
    void load(ktArchive& archive) override { archive || handle_; }
    std::string bytes() override { return storedBytes(handle_); }
    void use() override
    {
        if (handle_) {
            useObject(const_cast<std::remove_const_t<T>&>(*handle_));
        }
    }
    void recover(const std::string& good) override { loadFrom(handle_, good); }

private:
    ktPtrHandle<T> handle_;
};

template <class S>
std::unique_ptr<Subject> makeSubject()
{
    return std::make_unique<S>();
}

template <class T>
ArchivedType value(const char* name)
{
    return {name, &makeSubject<ValueSubject<T>>};
}

template <class T>
ArchivedType handle(const char* name)
{
    return {name, &makeSubject<HandleSubject<T>>};
}

}  // namespace

const std::vector<ArchivedType>& archivedTypes()
{
    static const std::vector<ArchivedType> types = {
        {"any object", &makeSubject<ObjectSubject>},
        value<ktClassifierTool>("ktClassifierTool"),
        value<ktClassifierTool>("ktClassifierToolWithTree"),
        value<ktClassifierCosts>("ktClassifierCosts"),
        value<ktClassifierFrequencies>("ktClassifierFrequencies"),
        value<ktClassifierCategoryResult>("ktClassifierCategoryResult"),
        value<ktClassifierResult>("ktClassifierResult"),
        value<ktClassifierDistributionTypes>("ktClassifierDistributionTypes"),
        value<ktPtrHandle<ktClsFtSc>>("ktClsFtSc"),
        value<ktClassifierFeatureScoreOneSided>("ktClassifierFeatureScoreOneSided"),
        value<ktClassifierFeatureScoreTwoSided>("ktClassifierFeatureScoreTwoSided"),
        value<ktClassifierFeatureVector>("ktClassifierFeatureVector"),
        value<ktClassifierRule>("ktClassifierRule"),
        value<ktClassifierRuleTable>("ktClassifierRuleTable"),
        value<ktClassifierDefs::BadParams>("BadParams in place"),
        value<ktFeaturePattern>("ktFeaturePattern in place"),
        value<Provider>("ktClassifierDataProviderMemory in place"),
        value<ktClassifierTrainParamsKNN>("ktClassifierTrainParamsKNN in place"),
        value<kt_ClassifierKNN>("kt_ClassifierKNN in place"),
        value<kt_ClassifierDecisionTree>("kt_ClassifierDecisionTree in place"),
        value<ktPatternDistanceMetricNorm>("ktPatternDistanceMetricNorm in place"),
        value<ktComparisonPredicate>("ktComparisonPredicate in place"),
        value<ktRangePredicate>("ktRangePredicate in place"),
        value<ktValidityPredicate>("ktValidityPredicate in place"),
        value<ktDecisionTreeNode>("ktDecisionTreeNode in place"),
        value<ktDecisionTreeLeaf>("ktDecisionTreeLeaf in place"),
        value<ktClassifierTrainParamsBayesian>("ktClassifierTrainParamsBayesian in place"),
        value<kt_CategoryModelBayesian>("kt_CategoryModelBayesian in place"),
        value<kt_PDFMultivariateNormal>("kt_PDFMultivariateNormal in place"),
        value<kt_PDFBinomial>("kt_PDFBinomial in place"),
        value<kt_ClassifierBayesian>("kt_ClassifierBayesian in place"),
        handle<const ktFeaturePattern>("handle to a pattern"),
        handle<const ktDecisionTree>("handle to a tree"),
        handle<kt_Classifier>("handle to a classifier"),
        handle<ktClassifierTrainParams>("handle to parameters"),
        value<std::vector<ktClassifierTool>>("tools"),
        value<std::vector<ktPtrHandle<ktDecisionTree>>>("trees"),
        value<std::vector<std::vector<ktPtrHandle<const ktFeaturePattern>>>>("patterns"),
        value<std::vector<std::vector<std::string>>>("texts"),
        value<std::vector<bool>>("flags"),
        value<std::vector<double>>("doubles"),
        value<std::vector<ktClassifierDistributionTypes::DistributionType>>("enumerations"),
        value<std::vector<unsigned char>>("bytes"),
        value<std::vector<ktRange>>("ranges"),
        value<std::vector<unsigned long>>("numbers"),
        value<ktNMMatrix>("matrix")};
    return types;
}

const ArchivedType& typeOfGolden(const std::string& name)
{
    const std::vector<ArchivedType>& types = archivedTypes();
    const auto found =
        std::find_if(types.begin(), types.end(), [&](const ArchivedType& type) { return type.name == name; });
    return found != types.end() ? *found : types.front();
}

}  // namespace kt_test
