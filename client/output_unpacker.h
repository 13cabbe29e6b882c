// Takes the byte stream of a receive connection apart into output packages.
#ifndef CLIENT_OUTPUT_UNPACKER_H
#define CLIENT_OUTPUT_UNPACKER_H

#include <cstddef>
#include <cstdint>

#include "client/vexo.h"

namespace vexo {

// A package is as long as its own length word says. Of one that is longer than the recipe's
// package, as much as the recipe asks for is shown, and the rest is passed over, so that the next
// one begins where it should. A length word that cannot be true counts as the recipe's length.
class OutputUnpacker {
public:
    // Where the next receive goes to, and how much it may bring, for packages of `length` bytes.
    uint8_t* room() { return bytes_ + filled_; }
    size_t wanted(size_t length) const;

    // Takes account of `count` bytes that were received there.
    void received(size_t count);

    // The next whole package: its size, with the bytes at package(), or 0 when none is complete.
    size_t next(size_t length);
    const uint8_t* package() const { return bytes_; }

private:
    void drop_shown();

    uint8_t bytes_[VEXO_MAX_OUTPUT_PACKAGE];
    size_t filled_ = 0;
    size_t shown_ = 0;    // bytes at the front that the last next() handed out
    size_t passing_ = 0;  // bytes to come that belong to a package already shown
};

}  // namespace vexo

#endif
