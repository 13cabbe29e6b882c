// Takes the byte stream of a TCP receive connection apart into packages of one recipe.
#ifndef SESSION_PACKAGE_READER_H
#define SESSION_PACKAGE_READER_H

#include <memory>

#include "wire/package.h"

namespace vexo::session {

// Packages of other recipes, which may still be on their way when a new one is set up, are passed
// over by their own length. So are those with our recipe's number and another length, unless the
// next header stands where ours ends: then only the length was wrong. Neither is given out.
class PackageReader {
public:
    static constexpr size_t kRoom = 65535 + 16384;

    PackageReader() : bytes_(new uint8_t[kRoom]) {}

    void clear() { filled_ = taken_ = 0; }
    // Packages of `length` bytes, header included, are those of the recipe.
    void expect(uint8_t recipe, size_t length) {
        recipe_ = recipe;
        length_ = length;
    }

    std::span<uint8_t> room();
    void received(size_t count) { filled_ += count; }

    enum class Found { nothing, package, foreign, malformed, no_header };
    // `values` receives those of a package, until the next call of room().
    Found next(std::span<const uint8_t>& values);

private:
    std::span<const uint8_t> left() const { return {bytes_.get() + taken_, filled_ - taken_}; }
    bool ours_at(size_t position) const;

    std::unique_ptr<uint8_t[]> bytes_;
    size_t filled_ = 0;
    size_t taken_ = 0;
    uint8_t recipe_ = 0;
    size_t length_ = 0;  // 0: none is expected
};

}  // namespace vexo::session

#endif
