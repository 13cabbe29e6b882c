// Reads a stream across cuts.
#ifndef TESTS_SESSION_STREAM_READER_H
#define TESTS_SESSION_STREAM_READER_H

#include "tests/session/session_fixture.h"

namespace test {

// Limits so short that a silent controller does not hold up the tests.
inline VexoSessionOptions impatient() {
    auto options = sized<VexoSessionOptions>();
    options.reply_limit_us = 300'000;
    options.stream_limit_us = 300'000;
    options.idle_us = 100'000;
    return options;
}

// Reads a stream of `package_counter` and sees to it that what it reads is in order.
class StreamReader {
public:
    explicit StreamReader(VexoSessionStream* stream) : records_(stream) {
        EXPECT_OK(vexo_session_cursor_open(stream, nullptr, &cursor_));
        field_.size = sizeof field_;
        EXPECT_OK(vexo_session_stream_find(stream, "package_counter", &field_));
    }

    // Reads on until a package of this connection, or a later one, has come.
    void read_up_to(uint32_t connection) {
        do {
            read_on();
        } while (last_.connection < connection && !::testing::Test::HasFailure());
    }

    // Reads on until so many more packages have come.
    void read_packages(uint64_t count) {
        const uint64_t end = number_ + count;
        while (number_ < end && !::testing::Test::HasFailure()) {
            read_on();
        }
    }

private:
    void read_on() {
        ASSERT_OK(vexo_session_cursor_wait(cursor_, kSoon));
        const size_t count = records_.read(cursor_, 256);
        number_ += records_.lost;
        for (size_t i = 0; i < count; ++i) {
            take(i);
        }
    }
    void take(size_t index) {
        const VexoSessionPackage package = records_.package(index);
        int64_t counter = 0;
        EXPECT_EQ(vexo_session_get_i64(&field_, records_.record(index), &counter, 1), 1);
        number_ = number_ == 0 ? package.number : number_ + 1;
        EXPECT_EQ(package.number, number_);
        EXPECT_GE(package.connection, last_.connection);
        EXPECT_GE(package.arrival_ns, last_.arrival_ns);
        if (package.connection == last_.connection) {
            EXPECT_GT(counter, counter_) << "an old package, or none at all";
        }
        last_ = package;
        counter_ = counter;
    }

    Records records_;
    VexoSessionCursor* cursor_ = nullptr;
    VexoSessionVariable field_{};
    VexoSessionPackage last_{};
    uint64_t number_ = 0;
    int64_t counter_ = 0;
};

}  // namespace test

#endif
