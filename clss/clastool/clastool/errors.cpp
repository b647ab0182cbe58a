#include <clastool/foundation.h>

using ktClassifierDefs::ConcreteError;
using ktClassifierDefs::Errors;

namespace {

/// The names by which archives know the classes, and by which UnknownVersion names them, in the order of their numbers.
constexpr const char* names[] = {"ktClassifierDefs::BadParams",   "ktClassifierDefs::NotTrained",
                                 "ktClassifierDefs::BadIndex",    "ktClassifierDefs::BadLabel",
                                 "ktClassifierDefs::BadMethod",   "ktClassifierDefs::NotImplemented",
                                 "ktClassifierDefs::BadFeatures", "ktClassifierDefs::InsufficientTrainData"};
constexpr long firstNumber = 0x10004200;

constexpr const char* nameOf(long number)
{
    return names[number - firstNumber];
}

/// Turns the failure codes of the normal density, group 91, into the library's errors. Registered for as long as the
/// library is loaded.
class FailureConverter {
public:
    FailureConverter() { kfRegisterExceptionConverter(group, &convert); }
    ~FailureConverter()
    {  // not covered: runs when the counts are already written
        kfUnregisterExceptionConverter(group, &convert);
    }
    FailureConverter(const FailureConverter&) = delete;
    FailureConverter& operator=(const FailureConverter&) = delete;

private:
    static constexpr long group = 91;

    static void convert(long code)
    {
        switch (static_cast<std::uint32_t>(code)) {
        case 0x80000B61u:
            throw ktClassifierDefs::InsufficientTrainData("No valid data has been used to train the distribution");
        case 0x80000B62u:
            throw ktClassifierDefs::BadParams(
                "Must call clear before updating with feature vectors of different sizes");
        default:
            return;
        }
    }
};

const FailureConverter failureConverter;

}  // namespace

Errors::Errors(const std::string& message) : ktExceptionWithString(message) {}
Errors::Errors(const Errors&) = default;
Errors& Errors::operator=(const Errors&) = default;
Errors::~Errors() = default;

void Errors::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void Errors::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version, "ktClassifierDefs::Errors");
    ktExceptionWithString::dispatchSerialize(archive);
}

template <class Concrete, long Number>
ConcreteError<Concrete, Number>::ConcreteError(const std::string& message) : Errors(message)
{
}

template <class Concrete, long Number>
ConcreteError<Concrete, Number>::ConcreteError(const ConcreteError&) = default;

template <class Concrete, long Number>
ConcreteError<Concrete, Number>& ConcreteError<Concrete, Number>::operator=(const ConcreteError&) = default;

template <class Concrete, long Number>
ConcreteError<Concrete, Number>::~ConcreteError() = default;

template <class Concrete, long Number>
long ConcreteError<Concrete, Number>::errorNumber() const
{
    return Number;
}

template <class Concrete, long Number>
void ConcreteError<Concrete, Number>::suicideAndRethrow()
{
    ktException::rethrowCopyOf(static_cast<Concrete*>(this));
}

template <class Concrete, long Number>
void ConcreteError<Concrete, Number>::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

template <class Concrete, long Number>
void ConcreteError<Concrete, Number>::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version, nameOf(Number));
    Errors::dispatchSerialize(archive);
}

template <class Concrete, long Number>
ktPersistent* ConcreteError<Concrete, Number>::make()
{
    return new Concrete;
}

template <class Concrete, long Number>
const kt_Instantiator ConcreteError<Concrete, Number>::sExemplar(typeid(Concrete),
                                                                 &ConcreteError<Concrete, Number>::make,
                                                                 nameOf(Number));

template class ktClassifierDefs::ConcreteError<ktClassifierDefs::BadParams, 0x10004200>;
template class ktClassifierDefs::ConcreteError<ktClassifierDefs::NotTrained, 0x10004201>;
template class ktClassifierDefs::ConcreteError<ktClassifierDefs::BadIndex, 0x10004202>;
template class ktClassifierDefs::ConcreteError<ktClassifierDefs::BadLabel, 0x10004203>;
template class ktClassifierDefs::ConcreteError<ktClassifierDefs::BadMethod, 0x10004204>;
template class ktClassifierDefs::ConcreteError<ktClassifierDefs::NotImplemented, 0x10004205>;
template class ktClassifierDefs::ConcreteError<ktClassifierDefs::BadFeatures, 0x10004206>;
template class ktClassifierDefs::ConcreteError<ktClassifierDefs::InsufficientTrainData, 0x10004207>;

ktArchive& operator||(ktArchive& archive, ktClassifierDefs::Status& status)
{
    unsigned long value = status;
    archive || value;
    // Written only when loading: another thread may be storing the same object.
    if (archive.isLoading()) {
        status = static_cast<ktClassifierDefs::Status>(value);
    }
    return archive;
}
