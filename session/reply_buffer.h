// Puts the replies of a TCP connection together, whatever pieces they come in.
#ifndef SESSION_REPLY_BUFFER_H
#define SESSION_REPLY_BUFFER_H

#include <memory>

#include "wire/message.h"

namespace vexo::session {

class ReplyBuffer {
public:
    static constexpr size_t kLongest = 65535;

    ReplyBuffer() : bytes_(new uint8_t[kLongest]) {}

    // Where the next bytes go to, and that they are there. There is room whenever next() has given
    // no reply.
    std::span<uint8_t> room() {
        drop_given();
        return {bytes_.get() + filled_, kLongest - filled_};
    }
    void received(size_t count) { filled_ += count; }

    // The next whole reply, until the next call; empty when there is none.
    std::span<const uint8_t> next();

    // A length word that no reply has has come.
    bool out_of_step() const { return out_of_step_; }
    // Part of a reply is there.
    bool in_the_middle() const { return filled_ > given_; }
    void clear() {
        filled_ = given_ = 0;
        out_of_step_ = false;
    }

private:
    void drop_given();

    std::unique_ptr<uint8_t[]> bytes_;
    size_t filled_ = 0;
    size_t given_ = 0;  // bytes at the front that next() has handed out
    bool out_of_step_ = false;
};

}  // namespace vexo::session

#endif
