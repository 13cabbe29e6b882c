// Without this a reply in two pieces could be read otherwise than is promised.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <ranges>

#include "tests/end_to_end/requests.h"

using namespace test;

namespace {

class CutReply : public RequestFixture, public ::testing::WithParamInterface<Request> {
protected:
    CutReply() : RequestFixture(GetParam()) {}
    void SetUp() override {
        RequestFixture::SetUp();
        if (app_) {  // a lost reply need not hold the next request back
            const int on = 1;
            setsockopt(app_->socket(request_.socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        }
    }

    // The call, once it gets to see the reply `bytes` in two pieces, the second of which waits for
    // the next call. An attempt that the machine has held up until the pieces met is of no use.
    Outcome call_with_cut(const Bytes& bytes, size_t cut) {
        for (int attempt = 0; attempt < 20; ++attempt) {
            EXPECT_EQ(call().result, 0);
            held_ = reply();
            inject(instead(bytes) + ",pause=5,cuts=" + std::to_string(cut));
            inject("lost");
            const Outcome outcome = call();
            if (reply() != bytes) {
                const auto rest = static_cast<int>(bytes.size() - cut);
                EXPECT_TRUE(app_->wait_settled(request_.socket, rest));
                return outcome;
            }
            controller_->clear_faults();
        }
        ADD_FAILURE() << "all in one piece";
        return {};
    }

    // What the call comes to with this as the whole of its reply.
    void expect_same_with(const Bytes& bytes, const Outcome& outcome, const Bytes& handed_out) {
        inject(instead(bytes));
        EXPECT_EQ(call(), outcome);
        EXPECT_TRUE(handed() == handed_out);
    }

    static std::string instead(const Bytes& bytes) {
        std::string digits = hex(bytes);
        std::erase(digits, ' ');
        return "bytes=" + digits;
    }

    Bytes held_;  // what the response buffer held before the cut reply came
};

class CutPage : public RequestFixture, public ::testing::WithParamInterface<Request> {
protected:
    CutPage() : RequestFixture(GetParam()) {}
};

std::string request_name(const ::testing::TestParamInfo<Request>& request) {
    return name_of(request.param);
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Single, CutReply, ::testing::ValuesIn(those_with({Receives::single})),
                         request_name);
INSTANTIATE_TEST_SUITE_P(Timing, CutReply, ::testing::ValuesIn(those_with({Receives::hasty})),
                         request_name);

// A single receive takes the first piece for the reply; what it lacks the buffer still holds of the
// reply before. The rest is the next reply.
TEST_P(CutReply, IsReadAsItsFirstPieceBeforeWhatTheBufferHeld) {
    const Bytes good = reply();
    for (const uint8_t status : {uint8_t{0}, uint8_t{5}}) {
        Bytes other = good;
        std::ranges::for_each(other, [](uint8_t& byte) { byte ^= 0xFF; });
        other[3] = status;
        for (size_t cut = 1; cut < reply_size_; ++cut) {
            SCOPED_TRACE(cut);
            const Outcome first_outcome = call_with_cut(other, cut);
            const Bytes first = reply();
            const Bytes first_handed = handed();
            const Outcome second_outcome = call();
            const Bytes second = reply();
            const Bytes second_handed = handed();

            Bytes expected = held_;
            std::copy_n(other.begin(), cut, expected.begin());
            ASSERT_EQ(first, expected);
            std::ranges::copy(other | std::views::drop(cut), expected.begin());
            ASSERT_EQ(second, expected);
            expect_same_with(first, first_outcome, first_handed);
            expect_same_with(second, second_outcome, second_handed);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Page, CutPage, ::testing::ValuesIn(those_with({Receives::page})),
                         request_name);

// A page is read on to its length, in as many receives as the first one makes out.
TEST_P(CutPage, IsReadOn) {
    const Outcome good = call();
    const Bytes whole = handed();
    const Bytes before = state();
    for (size_t cut = 1; cut < reply_size_; ++cut) {
        inject("pause=3,cuts=" + std::to_string(cut));
        ASSERT_EQ(call(), good) << cut;
        ASSERT_TRUE(handed() == whole) << cut;
        ASSERT_TRUE(state() == before) << cut;
    }
}
