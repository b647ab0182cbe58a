#include <clastool/kit/files.h>

#include "access.h"
#include "checksum.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>
#include <vector>

// A file holds the tool's own archive, and behind it what that archive leaves out: the parameters that a nearest-neighbour classifier
// uses, and what the binomial densities have accumulated, which they need to learn further.

namespace {

// Stored in files: never change.
constexpr std::array<char, 8> signature = {'k', 't', 'K', 'i', 't', '\r', '\n', '\x1A'};
constexpr std::array<char, 1> fileVersion = {0};

constexpr std::size_t archiveBegin = signature.size() + fileVersion.size();
constexpr std::size_t checksumSize = 4;

using Accumulators = std::vector<ktPtrHandle<kt_PDFMultivariateNormal>>;

/// Calls `visit` with each binomial density of a Bayesian tool, by category and group.
template <class Visit>
void forEachBinomial(const ktClassifierTool& tool, Visit visit)
{
    auto* bayes = kt_KitAccess::classifierAs<kt_ClassifierBayesian>(tool);
    if (bayes == nullptr) {
        return;
    }
    for (const ktPtrHandle<kt_CategoryModel>& model : kt_KitAccess::models(*bayes)) {
        const auto* own = dynamic_cast<const kt_CategoryModelBayesian*>(model.get());
        if (own == nullptr) {
            continue;
        }
        for (const ktPtrHandle<kt_ProbabilityDensityFunction>& density : kt_KitAccess::densities(*own)) {
            if (auto* binomial = dynamic_cast<kt_PDFBinomial*>(density.get())) {
                visit(*binomial);
            }
        }
    }
}

/// A tool, and what its own archive leaves out.
struct Contents {
    ktClassifierTool tool;
    ktPtrHandle<ktClassifierTrainParamsKNN> inUse;
    Accumulators accumulators;
    ktPtrHandle<ktKit::Scaler> scaler;

    void collect()
    {
        if (auto* neighbors = kt_KitAccess::classifierAs<kt_ClassifierKNN>(tool)) {
            inUse = new ktClassifierTrainParamsKNN(kt_KitAccess::paramsInUse(*neighbors));
        }
        forEachBinomial(tool, [this](kt_PDFBinomial& binomial) {
            const ktPtrHandle<kt_PDFMultivariateNormal> copy =
                new kt_PDFMultivariateNormal(kt_KitAccess::accumulator(binomial));
            accumulators.push_back(copy);
        });
    }

    /// Gives the tool what its archive left out; false if that does not fit the tool.
    bool giveBack()
    {
        auto* neighbors = kt_KitAccess::classifierAs<kt_ClassifierKNN>(tool);
        std::size_t numBinomials = 0;
        forEachBinomial(tool, [&](kt_PDFBinomial&) { ++numBinomials; });
        const bool isWhole = std::none_of(accumulators.begin(), accumulators.end(),
                                          [](const auto& accumulator) { return accumulator.isNull(); });
        if (inUse.isNull() != (neighbors == nullptr) || accumulators.size() != numBinomials || !isWhole) {
            return false;
        }
        if (neighbors != nullptr) {
            kt_KitAccess::paramsInUse(*neighbors, inUse);
        }
        auto next = accumulators.begin();
        forEachBinomial(tool, [&](kt_PDFBinomial& binomial) { kt_KitAccess::accumulator(binomial) = **next++; });
        return true;
    }
};

void archiveContents(ktArchive& archive, Contents& contents)
{
    const ktArchive::Pass pass(archive);
    archive || contents.tool || contents.inUse || contents.accumulators || contents.scaler;
}

[[noreturn]] void refuse(const std::string& path, const std::string& what)
{
    throw ktKit::FileError(path + ": " + what);
}

[[noreturn]] void refuseAt(const std::string& path, const std::string& what, std::size_t byte)
{
    refuse(path, what + " at byte " + std::to_string(byte));
}

std::array<char, checksumSize> checksumBytes(std::uint32_t sum)
{
    std::array<char, checksumSize> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(sum >> 8 * i & 0xFF);
    }
    return bytes;
}

/// A new file that replaces another one when it is complete, and is removed otherwise.
class Replacement {
public:
    explicit Replacement(const std::string& path) : path_(path), part_(path)
    {
        char digits[16];
        std::snprintf(digits, sizeof digits, ".part-%08x", static_cast<unsigned>(std::random_device()() & 0xFFFFFFFFU));
        part_ += digits;
    }
    ~Replacement()
    {
        std::error_code ignored;
        if (!isDone_) {
            std::filesystem::remove(part_, ignored);
        }
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    const std::filesystem::path& part() const { return part_; }
    void takePlace()
    {
        std::error_code failed;
        std::filesystem::rename(part_, path_, failed);
        isDone_ = !failed;
    }
    bool isDone() const { return isDone_; }

private:
    std::filesystem::path path_;
    std::filesystem::path part_;
    bool isDone_ = false;
};

void writeContents(std::ostream& file, Contents& contents)
{
    kt_SummedBuffer summed(*file.rdbuf());
    std::ostream stream(&summed);
    stream.write(signature.data(), signature.size());
    stream.write(fileVersion.data(), fileVersion.size());
    ktArchive archive(stream);
    archiveContents(archive, contents);
    const auto sum = checksumBytes(summed.sum());
    file.write(sum.data(), sum.size());
    file.flush();
    file.setstate(stream.rdstate());
}

/// Checks signature, version and checksum; returns the size of the archive.
std::size_t checkedSize(std::istream& file, const std::string& path)
{
    std::array<char, 4096> block{};
    std::array<char, checksumSize> last{};
    kt_Checksum sum;
    std::size_t size = 0;
    while (file) {
        // The last four bytes read may be the checksum, so they are summed only when more bytes follow.
        const std::size_t held = std::min(size, checksumSize);
        std::copy_n(last.begin(), held, block.begin());
        file.read(block.data() + held, static_cast<std::streamsize>(block.size() - held));
        // A folder opens like a file, and fails here.
        if (file.bad()) {
            refuse(path, "cannot be read");
        }
        const std::size_t end = held + static_cast<std::size_t>(file.gcount());
        if (size == 0) {
            const std::size_t known = std::min(end, signature.size());
            const auto differs = std::mismatch(signature.begin(), signature.begin() + known, block.begin());
            if (std::string(block.data(), std::min<std::size_t>(end, 4)) == "KTAR") {
                refuseAt(path, "an archive as ktArchive stores it, not a file of ktKit::save,", 0);
            }
            if (differs.first != signature.begin() + known) {
                refuseAt(path, "not a file of ktKit::save,",
                         static_cast<std::size_t>(differs.first - signature.begin()));
            }
            if (end < archiveBegin + checksumSize) {
                refuseAt(path, "unexpected end", end);
            }
            if (block[signature.size()] != fileVersion.front()) {
                const auto version = static_cast<unsigned char>(block[signature.size()]);
                refuseAt(path, "unknown version " + std::to_string(version), signature.size());
            }
        }
        sum.add(block.data(), end - checksumSize);
        std::copy_n(block.data() + (end - checksumSize), checksumSize, last.begin());
        size += end - held;
    }
    if (last != checksumBytes(sum.value())) {
        refuse(path,
               "damaged or cut short: the checksum at byte " + std::to_string(size - checksumSize) + " does not match");
    }
    return size;
}

void saveContents(Contents contents, const std::string& path)
{
    contents.collect();
    Replacement replacement(path);
    std::ofstream file(replacement.part(), std::ios::binary | std::ios::trunc);
    if (file) {
        try {
            writeContents(file, contents);
        } catch (const ktArchive::StreamFailed&) {
            file.setstate(std::ios::badbit);
        }
        file.close();
    }
    if (file) {
        replacement.takePlace();
    }
    if (!replacement.isDone()) {
        refuse(path, "cannot be written");
    }
}

Contents loadContents(std::istream& file, const std::string& path)
{
    if (!file) {
        refuse(path, "cannot be read");
    }
    const std::size_t size = checkedSize(file, path);
    file.clear();
    file.seekg(archiveBegin);
    Contents contents;
    try {
        ktArchive archive(file);
        archiveContents(archive, contents);
    } catch (const ktArchive::Errors& error) {
        refuse(path, "the archive that begins at byte " + std::to_string(archiveBegin) + ": " + error.message());
    }
    const auto end = static_cast<std::size_t>(file.tellg());
    if (end + checksumSize != size || !contents.giveBack()) {
        refuse(path, "something else than a tool and its parameters before byte " + std::to_string(end));
    }
    return contents;
}

Contents loadContents(const std::string& path)
{
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    return loadContents(file, path);
}

ktClassifierTool toolOf(Contents contents, const std::string& path)
{
    if (contents.scaler) {
        refuse(path, "the tool was saved with a scaler, so it is loaded with one");
    }
    return std::move(contents.tool);
}

}  // namespace

ktKit::FileError::FileError(const std::string& message) : ktExceptionWithString(message) {}

long ktKit::FileError::errorNumber() const
{
    return 0x10004400;
}

void ktKit::FileError::suicideAndRethrow()
{
    rethrowCopyOf(this);
}

void ktKit::save(const ktClassifierTool& tool, const std::string& path)
{
    saveContents({tool, nullptr, {}, nullptr}, path);
}

void ktKit::save(const ktClassifierTool& tool, std::ostream& stream)
{
    Contents contents{tool, nullptr, {}, nullptr};
    contents.collect();
    if (stream) {
        try {
            writeContents(stream, contents);
        } catch (const ktArchive::StreamFailed&) {
            stream.setstate(std::ios::badbit);
        }
    }
    if (!stream) {
        refuse("stream", "cannot be written");
    }
}

void ktKit::save(const ktClassifierTool& tool, const Scaler& scaler, const std::string& path)
{
    saveContents({tool, nullptr, {}, new Scaler(scaler)}, path);
}

ktClassifierTool ktKit::load(const std::string& path)
{
    return toolOf(loadContents(path), path);
}

ktClassifierTool ktKit::load(std::istream& stream)
{
    const std::string path = "stream";
    if (!stream) {
        refuse(path, "cannot be read");
    }
    // A copy of the remaining bytes, because they are read twice.
    std::string bytes;
    std::array<char, 4096> block{};
    while (stream.read(block.data(), block.size()), stream.gcount() > 0) {
        bytes.append(block.data(), static_cast<std::size_t>(stream.gcount()));
    }
    if (stream.bad()) {
        refuse(path, "cannot be read");
    }
    std::istringstream file(bytes, std::ios::binary);
    return toolOf(loadContents(file, path), path);
}

ktClassifierTool ktKit::load(const std::string& path, Scaler& scaler)
{
    Contents contents = loadContents(path);
    if (contents.scaler.isNull()) {
        refuse(path, "the tool was saved without a scaler");
    }
    scaler = *contents.scaler;
    return std::move(contents.tool);
}
