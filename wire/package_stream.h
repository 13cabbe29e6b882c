// Takes the byte stream of output packages apart.
#ifndef WIRE_PACKAGE_STREAM_H
#define WIRE_PACKAGE_STREAM_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace vexo::wire {

// Packages follow one another at the length of their recipe, and the stream stays in step whatever
// their length words say. A package that says less is shown by its word as soon as so much of it is
// there; of one that says more, as much as the recipe asks for. Where the next one begins, at the
// word's end or at the recipe's boundary, is then told by where a header stands.
class PackageStream {
public:
    static constexpr size_t kLongestRecipe = 1440;
    static constexpr size_t kLongestPackage = 20480;  // a word beyond it cannot be true

    // Where the next bytes of the stream go; there is always room.
    std::span<uint8_t> room();
    // Takes account of `count` bytes that were put there.
    void received(size_t count);

    // The next package to show, of a recipe of `length` bytes; empty when none is there yet. It
    // lies there until room() is called. Call it until it is empty.
    std::span<const uint8_t> next(size_t length);

private:
    std::span<const uint8_t> waiting() const { return {bytes_ + begin_, end_ - begin_}; }
    size_t boundary(size_t recipe) const;
    bool begins_at(size_t position, size_t recipe) const;
    uint16_t word_at(size_t position) const;
    void skip(size_t count);

    // Two of the longest are the most that is waited for.
    uint8_t bytes_[3072];
    size_t begin_ = 0;
    size_t end_ = 0;
    size_t passing_ = 0;  // bytes to come that belong to a package already shown
    bool shown_ = false;  // the package at the front was handed out
};

}  // namespace vexo::wire

#endif
