#include "wire/package_stream.h"

#include <algorithm>
#include <cstring>

#include "wire/package.h"

namespace vexo::wire {

namespace {

// Where a package's header has them.
constexpr size_t kLetter = 2;
constexpr size_t kRecipeNumber = 3;
constexpr auto kPackage = static_cast<uint8_t>(Letter::package);

// Where a package that says `word` ends by its word; at the recipe's boundary when that cannot be.
size_t end_by_word(size_t word, size_t recipe) {
    return word < kPackageHeader || word > PackageStream::kLongestPackage ? recipe : word;
}

// How much of a package that says `word` is shown.
size_t shown_size(size_t word, size_t recipe) {
    return std::min(end_by_word(word, recipe), recipe);
}

}  // namespace

std::span<uint8_t> PackageStream::room() {
    const std::span<const uint8_t> kept = waiting();
    if (begin_ > 0) {
        std::memmove(bytes_, kept.data(), kept.size());
    }
    begin_ = 0;
    end_ = kept.size();
    return {bytes_ + end_, sizeof bytes_ - end_};
}

void PackageStream::received(size_t count) {
    end_ += count;
    const size_t passed = std::min(passing_, count);
    begin_ += passed;
    passing_ -= passed;
}

std::span<const uint8_t> PackageStream::next(size_t length) {
    const size_t recipe = std::min(length, kLongestRecipe);
    if (recipe == 0) {
        return {};
    }
    if (shown_) {
        const size_t end = boundary(recipe);
        if (end == 0) {
            return {};
        }
        skip(end);
        shown_ = false;
    }
    const std::span<const uint8_t> here = waiting();
    if (here.size() < sizeof(uint16_t)) {
        return {};
    }
    const size_t size = shown_size(word_at(0), recipe);
    shown_ = size <= here.size();
    return shown_ ? here.first(size) : std::span<const uint8_t>{};
}

// Where the package after the one at the front begins; 0 while that cannot be told. The nearer
// place counts when a header stands there. Values can look like one: where the farther place can be
// seen before the package at the nearer one is due to be shown, it counts when only there a header
// of the recipe's own length stands. However the stream is cut, the answer is the same.
size_t PackageStream::boundary(size_t recipe) const {
    const auto [near, far] = std::minmax({end_by_word(word_at(0), recipe), recipe});
    if (near == far) {
        return recipe;
    }
    const size_t there = waiting().size();
    if (there < near + kPackageHeader) {
        return 0;
    }
    if (!begins_at(near, recipe)) {
        return far;
    }
    const size_t due = near + shown_size(word_at(near), recipe);
    if (word_at(near) == recipe || due < far + kPackageHeader) {
        return near;
    }
    if (there < far + kPackageHeader) {
        return 0;
    }
    return begins_at(far, recipe) && word_at(far) == recipe ? far : near;
}

// Whether a header stands there: the letter and the same recipe number behind a length word,
// whatever that says; or any recipe number behind the right one, since a recipe may be followed by
// another.
bool PackageStream::begins_at(size_t position, size_t recipe) const {
    const uint8_t* front = bytes_ + begin_;
    const uint8_t* header = front + position;
    return header[kLetter] == kPackage &&
           (header[kRecipeNumber] == front[kRecipeNumber] || front[kLetter] != kPackage ||
            word_at(position) == recipe);
}

uint16_t PackageStream::word_at(size_t position) const {
    const uint8_t* word = bytes_ + begin_ + position;
    return static_cast<uint16_t>(word[0] | word[1] << 8);
}

void PackageStream::skip(size_t count) {
    const size_t here = std::min(count, waiting().size());
    begin_ += here;
    passing_ = count - here;
}

}  // namespace vexo::wire
