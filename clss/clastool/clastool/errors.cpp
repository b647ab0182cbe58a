#include <clastool/foundation.h>

using ktClassifierDefs::Errors;

namespace {

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

void Errors::dispatchSerialize(ktArchive& archive)
{
    dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); });
}

void Errors::serialize_(ktArchive& archive, unsigned char version)
{
    ktArchive::checkVersion(version, "ktClassifierDefs::Errors");
    ktExceptionWithString::dispatchSerialize(archive);
}

// NOLINTBEGIN(bugprone-macro-parentheses): a class's name stands in no parentheses.
// The name is the one by which archives know the class, and by which UnknownVersion names it.
#define KT_DEFINE_ERROR(Class, number)                                                                            \
    ktClassifierDefs::Class::Class(const std::string& message) : Errors(message) {}                               \
    long ktClassifierDefs::Class::errorNumber() const                                                             \
    {                                                                                                             \
        return number;                                                                                            \
    }                                                                                                             \
    void ktClassifierDefs::Class::suicideAndRethrow()                                                             \
    {                                                                                                             \
        rethrowCopyOf(this);                                                                                      \
    }                                                                                                             \
    void ktClassifierDefs::Class::dispatchSerialize(ktArchive& archive)                                           \
    {                                                                                                             \
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) { serialize_(archive, version); }); \
    }                                                                                                             \
    void ktClassifierDefs::Class::serialize_(ktArchive& archive, unsigned char version)                           \
    {                                                                                                             \
        ktArchive::checkVersion(version, "ktClassifierDefs::" #Class);                                            \
        Errors::dispatchSerialize(archive);                                                                       \
    }                                                                                                             \
    ktPersistent* ktClassifierDefs::Class::make()                                                                 \
    {                                                                                                             \
        return new Class;                                                                                         \
    }                                                                                                             \
    const kt_Instantiator ktClassifierDefs::Class::sExemplar(typeid(Class), &Class::make, "ktClassifierDefs::" #Class)
// NOLINTEND(bugprone-macro-parentheses)

KT_DEFINE_ERROR(BadParams, 0x10004200);
KT_DEFINE_ERROR(NotTrained, 0x10004201);
KT_DEFINE_ERROR(BadIndex, 0x10004202);
KT_DEFINE_ERROR(BadLabel, 0x10004203);
KT_DEFINE_ERROR(BadMethod, 0x10004204);
KT_DEFINE_ERROR(NotImplemented, 0x10004205);
KT_DEFINE_ERROR(BadFeatures, 0x10004206);
KT_DEFINE_ERROR(InsufficientTrainData, 0x10004207);

#undef KT_DEFINE_ERROR

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
