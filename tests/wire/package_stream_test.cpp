// The stream of output packages stays in step, whatever a length word says and however the bytes
// come.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "tests/support/scripted_peer.h"
#include "wire/package_stream.h"

using namespace test;

namespace {

constexpr size_t kRecipe = 20;  // bytes of a package

Bytes package(size_t word, size_t size, const Bytes& values) {
    Bytes whole{static_cast<uint8_t>(word), static_cast<uint8_t>(word >> 8), 'U', 1};
    for (size_t i = 0; whole.size() < size; ++i) {
        whole.push_back(values[i % values.size()]);
    }
    whole.resize(size);
    return whole;
}

// One package among others that are as the recipe asks for.
struct Odd {
    const char* name;
    size_t word;
    size_t size;  // in truth
    size_t shown;
    Bytes values = {7};
};

void PrintTo(const Odd& odd, std::ostream* out) {
    *out << odd.name;
}

const Odd kOdds[] = {
    {"Says16", 16, 20, 16},
    {"Says24", 24, 20, 20},
    {"SaysMost", 65535, 20, 20},
    {"SaysNothing", 0, 20, 20},
    {"SaysLessThanAHeader", 3, 20, 20},
    {"SaysAHeader", 4, 20, 4},
    {"SaysOneLess", 19, 20, 19},
    {"SaysTwoLess", 18, 20, 18},
    {"SaysOneMore", 21, 20, 20},
    {"SaysTwo", 40, 20, 20},
    {"SaysManyAndIsNone", 5000, 20, 20},
    {"IsShort", 7, 7, 7},
    {"IsAHeader", 4, 4, 4},
    {"IsOneShort", 19, 19, 19},
    {"IsLong", 26, 26, 20},
    {"IsOneLong", 21, 21, 20},
    {"IsVeryLong", 5000, 5000, 20},
    // Values that look like headers.
    {"Says16AmongLetters", 16, 20, 16, {'U', 1}},
    {"Says7AmongLetters", 7, 20, 7, {'U', 1, 'U', 1, 'U'}},
    {"IsShortAmongLetters", 7, 7, 7, {'U', 1}},
    {"IsLongAmongLetters", 26, 26, 20, {1, 'U'}},
    {"Says24BeforeLetters", 24, 20, 20, {'U', 'U'}},
};

class OddPackage : public ::testing::TestWithParam<Odd> {
protected:
    OddPackage() {
        for (size_t i = 0; i < 200; ++i) {
            const auto value = static_cast<uint8_t>(i);
            if (i % 40 == 20) {
                const Odd& odd = GetParam();
                add(package(odd.word, odd.size, odd.values), odd.shown);
            } else {
                add(package(kRecipe, kRecipe, {value, 0, 'U'}), kRecipe);
            }
        }
    }

    void add(Bytes bytes, size_t shown) {
        due_.push_back(stream_.size() + shown);
        stream_ = stream_ + bytes;
        bytes.resize(shown);
        expected_.push_back(bytes);
    }

    // Checks that each package is shown with the piece that brings the last byte it needs.
    void play_in_pieces_of(size_t cut) const {
        const auto packages = std::make_unique<vexo::wire::PackageStream>();
        std::vector<Bytes> shown;
        for (size_t at = 0; at < stream_.size();) {
            const auto room = packages->room();
            const size_t count = std::min({cut, room.size(), stream_.size() - at});
            ASSERT_GT(count, 0U);
            std::copy_n(stream_.begin() + static_cast<long>(at), count, room.begin());
            packages->received(count);
            at += count;
            for (auto next = packages->next(kRecipe); !next.empty();
                 next = packages->next(kRecipe)) {
                shown.emplace_back(next.begin(), next.end());
            }
            const auto due = std::upper_bound(due_.begin(), due_.end(), at) - due_.begin();
            ASSERT_EQ(shown.size(), static_cast<size_t>(due)) << "with byte " << at;
        }
        EXPECT_EQ(shown, expected_);
    }

private:
    Bytes stream_;
    std::vector<size_t> due_;  // how many bytes of the stream each package needs
    std::vector<Bytes> expected_;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Table, OddPackage, ::testing::ValuesIn(kOdds),
                         [](const auto& odd) { return odd.param.name; });

TEST_P(OddPackage, CostsNoOtherHoweverTheStreamIsCut) {
    for (const size_t cut : {1, 3, 7, 16, 19, 20, 21, 1000, 100000}) {
        SCOPED_TRACE(cut);
        play_in_pieces_of(cut);
    }
}
