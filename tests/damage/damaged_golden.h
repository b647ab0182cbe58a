#pragma once

#include "damage/battery.h"

#include "support/damage.h"
#include "support/golden.h"
#include "support/streams.h"
#include "support/test.h"

#include <filesystem>

// A golden archive, and what becomes of it when it is damaged.

namespace kt_test {

/// The golden archives, except those of the foundation's own tests, which have classes of their own.
inline std::vector<std::string> goldenNames()
{
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(goldenFolder())) {
        const std::string name = file.path().stem().string();
        if (name.rfind("foundation_", 0) != 0) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

using Subjects = std::vector<std::unique_ptr<Subject>>;

class DamagedGolden : public ::testing::TestWithParam<std::string> {
protected:
    DamagedGolden() : type_(typeOfGolden(GetParam())), bytes_(goldenBytes(GetParam())) {}

    /// Uses every undamaged value: what the battery and the library set up on first use must not look like a leak.
    static void SetUpTestSuite()
    {
        for (const std::string& name : goldenNames()) {
            forEachValue(typeOfGolden(name), goldenBytes(name), [](Subject& subject) { subject.use(); });
        }
    }

    void SetUp() override
    {
        forEachValue(type_, bytes_, [this](Subject& subject) { undamaged_.push_back(subject.bytes()); });
        ASSERT_GT(undamaged_.size(), 1u);
    }

    template <class Visit>
    static void forEachValue(const ArchivedType& type, const std::string& bytes, Visit visit)
    {
        std::istringstream in(bytes);
        ktArchive archive(static_cast<std::istream&>(in));
        while (in.peek() != std::istringstream::traits_type::eof()) {
            const std::unique_ptr<Subject> subject = type.make();
            subject->load(archive);
            visit(*subject);
        }
    }

    /// Loads as many values as the golden archive has. Returns whether all were loaded; the last one may be half loaded.
    bool load(std::istream& in, std::size_t size, Subjects& subjects) const
    {
        bool loaded = true;
        const MemoryWatch watch;
        ktArchive archive(in);
        while (loaded && subjects.size() < undamaged_.size()) {
            subjects.push_back(type_.make());
            try {
                subjects.back()->load(archive);
            } catch (const ktArchive::Errors&) {
                loaded = false;
            }
        }
        EXPECT_LE(watch.peakBytes(), 64 * size + 64 * 1024);
        return loaded;
    }

    void checkDamaged(const std::string& damaged, DamageReport& counts) const
    {
        std::istringstream in(damaged);
        Subjects subjects;
        const bool loaded = load(in, damaged.size(), subjects);
        BlindSource blind(damaged);
        Subjects blindly;
        EXPECT_EQ(load(blind, damaged.size(), blindly), loaded) << "from a stream without a length";
        ++(loaded ? counts.loaded : counts.refused);
        if (!loaded) {
            subjects.back()->recover(bytes_);
            subjects.pop_back();
        }
        for (std::size_t i = 0; i < subjects.size(); ++i) {
            const std::string bytes = subjects[i]->bytes();
            EXPECT_EQ(blindly.at(i)->bytes(), bytes) << "value " << i << " from a stream without a length";
            // A value that the damage did not reach has been used before.
            if (bytes != undamaged_[i]) {
                subjects[i]->use();
            }
        }
    }

    const ArchivedType& type_;
    const std::string bytes_;
    std::vector<std::string> undamaged_;
};

}  // namespace kt_test
