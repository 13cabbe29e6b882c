// Every request, and each way in which its reply can go wrong.
#include <algorithm>
#include <atomic>
#include <future>
#include <tuple>

#include "tests/end_to_end/requests.h"

using namespace test;

namespace {

// What a request comes to. In the texts F stands for its function, N for the size of its reply.
struct Expected {
    int32_t result;
    const char* printed = "";
    const char* logged = nullptr;
};

struct Mishap {
    const char* name;
    const char* fault;
    Expected single;
    Expected page;
    bool single_goes_on;  // the next request succeeds
    bool page_goes_on;
};

void PrintTo(const Mishap& mishap, std::ostream* out) {
    *out << mishap.fault;
}

constexpr Expected kGood{0};
constexpr Expected kRefused{5, "F Error: 5\n", " F Error: 5\n"};
constexpr Expected kClosed{302, "F recv error\n", " F recv error: 0\n"};

const Mishap kMishaps[] = {
    {"Refused", "status=5", kRefused, kRefused, true, true},
    {"Late", "delay=100", kGood, kGood, true, true},
    {"OtherLetter", "letter=Z", kGood, kGood, true, true},
    {"TooSmallALength",
     "length=3",
     kGood,
     {302, "F recv error, need_len:3, now_len:N\n", " F recv error, need_len:3, now_len:N\n"},
     true,
     true},
    {"TooLargeALength",
     "length=4000,close",
     kGood,
     {302, "F recv error, need_len:4000, now_len:N\n", " F recv error, need_len:4000, now_len:N\n"},
     false,
     false},
    {"Stub", "size=2", kGood, kGood, true, true},
    {"FilledUp", "size=1400", kGood, kGood, true, true},
    {"Long", "size=20000", kGood, kGood, false, true},
    {"TooLong",
     "size=30000",
     kGood,
     {302, "F recv error, need_len:30000, now_len:20480\n",
      " F recv error, need_len:30000, now_len:20480\n"},
     false,
     false},
    {"ClosedBefore", "close,after=0", kClosed, kClosed, false, false},
    {"ClosedWithin",
     "close,after=3",
     kGood,
     {302, "F recv error, need_len:N, now_len:3\n", " F recv error, need_len:N, now_len:3\n"},
     false,
     false},
    {"ClosedAfter", "close", kGood, kGood, false, false},
    {"Reset",
     "reset,after=0",
     {302, "Receive failed - Connection reset by peer (errno: 104)\nF recv error\n",
      " F recv error: -1\n"},
     {302,
      "Receive failed - Connection reset by peer (errno: 104)\n"
      "F recv error, need_len:0, now_len:65535\n",
      " F recv error, need_len:0, now_len:65535\n"},
     false,
     false},
};

void replace_all(std::string& text, const std::string& what, const std::string& by) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
}

// A request on a connection on which the same request has succeeded already.
class RequestFixture {
protected:
    RequestFixture() : controller_(small_controller()) {}

    void prepare(const Request& request) {
        request_ = &request;
        ASSERT_NO_FATAL_FAILURE(connect_small(app_));
        ASSERT_EQ(call(), 0);
        reply_size_ = app_.dataspace()[kResponseOffset];
        std::atomic_ref(app_.dataspace()[kStreamingOffset]) = 0;  // the receive thread may look
        std::memset(handed_.bytes, 0xA5, sizeof handed_.bytes);
    }

    int32_t call() { return request_->call(app_, handed_); }
    void inject(const std::string& fault) { controller_.inject(sim::parse_fault(fault)); }
    bool nothing_handed() const {
        return std::all_of(std::begin(handed_.bytes), std::end(handed_.bytes),
                           [](uint8_t byte) { return byte == 0xA5; });
    }
    std::string filled_in(std::string text) const {
        replace_all(text, "F", request_->function);
        replace_all(text, "N", std::to_string(reply_size_));
        return text;
    }

    const Request* request_ = nullptr;
    sim::Simulator controller_;
    Application app_;
    Handed handed_;
    size_t reply_size_ = 0;
};

class Fault : public RequestFixture,
              public ::testing::TestWithParam<std::tuple<Request, Mishap>> {};

std::string fault_name(const ::testing::TestParamInfo<std::tuple<Request, Mishap>>& both) {
    return std::string(std::get<0>(both.param).function) + "_" + std::get<1>(both.param).name;
}

class CutReply : public RequestFixture, public ::testing::TestWithParam<Request> {};

class CutPage : public RequestFixture, public ::testing::TestWithParam<Request> {};

std::vector<Request> those_with(Request::Receives receives) {
    std::vector<Request> result;
    std::ranges::copy_if(requests(), std::back_inserter(result),
                         [=](const Request& request) { return request.receives == receives; });
    return result;
}

std::string request_name(const ::testing::TestParamInfo<Request>& request) {
    return request.param.function;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Matrix, Fault,
                         ::testing::Combine(::testing::ValuesIn(requests()),
                                            ::testing::ValuesIn(kMishaps)),
                         fault_name);

TEST_P(Fault, EndsAsStatedAndLeavesNothingElse) {
    const auto& [request, mishap] = GetParam();
    ASSERT_NO_FATAL_FAILURE(prepare(request));
    log_init();
    const bool is_page = request.receives == Request::page;
    const Expected& expected = is_page ? mishap.page : mishap.single;
    inject(mishap.fault);
    EXPECT_EQ(outcome_of([&] { return call(); }),
              (Outcome{expected.result, filled_in(expected.printed)}));
    EXPECT_EQ(app_.dataspace()[kStreamingOffset], expected.result == 0 ? request.streaming : 0);
    if (expected.result != 0) {
        EXPECT_TRUE(nothing_handed());
    }
    const std::string log = Session::finished_log(app_.address);
    if (expected.logged != nullptr) {
        EXPECT_THAT(log, ::testing::HasSubstr(filled_in(expected.logged)));
    } else {
        EXPECT_THAT(log, ::testing::Not(::testing::HasSubstr("rror")));
    }
    if (is_page ? mishap.page_goes_on : mishap.single_goes_on) {
        EXPECT_EQ(outcome_of([&] { return call(); }), (Outcome{0, ""}));
        EXPECT_EQ(app_.dataspace()[kResponseOffset], reply_size_);
    }
    EXPECT_EQ(app_.destroy(), 0);
}

INSTANTIATE_TEST_SUITE_P(Timing, CutReply, ::testing::ValuesIn(those_with(Request::single)),
                         request_name);

// A single receive takes the first piece for the reply; what it lacks the buffer still holds of the
// reply before. The rest is the next reply.
TEST_P(CutReply, IsExaminedByItsFirstPiece) {
    ASSERT_NO_FATAL_FAILURE(prepare(GetParam()));
    for (int cut = 1; cut < 7; ++cut) {
        ASSERT_EQ(call(), 0);
        inject("status=5,pause=100,cuts=" + std::to_string(cut));
        inject("lost");
        const int32_t status = cut > 3 ? 5 : 0;
        EXPECT_EQ(call(), status) << cut;
        EXPECT_EQ(call(), status) << "with the rest of the reply, cut at " << cut;
    }
    EXPECT_EQ(app_.destroy(), 0);
}

INSTANTIATE_TEST_SUITE_P(Timing, CutPage, ::testing::ValuesIn(those_with(Request::page)),
                         request_name);

// A page is read on to its length, in as many receives as the first one makes out.
TEST_P(CutPage, IsReadOn) {
    ASSERT_NO_FATAL_FAILURE(prepare(GetParam()));
    ASSERT_EQ(call(), 0);
    const Handed whole = handed_;
    for (size_t cut = 1; cut < reply_size_; ++cut) {
        std::memset(handed_.bytes, 0, sizeof handed_.bytes);
        inject("pause=3,cuts=" + std::to_string(cut));
        ASSERT_EQ(call(), 0) << cut;
        ASSERT_EQ(handed_.bytes[0], whole.bytes[0]) << cut;
        ASSERT_STREQ(handed_.variables.rows[0].name, whole.variables.rows[0].name) << cut;
    }
    inject("pause=100,cuts=10+20");
    EXPECT_EQ(outcome_of([&] { return call(); }),
              (Outcome{302, filled_in("F recv error, need_len:N, now_len:20\n")}));
}

TEST(SilentController, HoldsItsRequestUntilTheConnectionEndsAndNoOther) {
    sim::Simulator controller(small_controller());
    const sim::Simulator other_controller(on_loopback(2));
    Application app;
    Application other(own_loopback(2));
    ASSERT_NO_FATAL_FAILURE(connect_small(app));
    controller.inject(sim::parse_fault("lost"));
    auto asked =
        std::async(std::launch::async, [&] { return vexo_set_percentvelocity(app.handle, 0, 50); });
    ASSERT_TRUE(controller.wait_for_requests('m', 1));
    ASSERT_NO_FATAL_FAILURE(other.stream("package_counter"));
    EXPECT_TRUE(wait_until([&] { return other.latest().value<uint32_t>(0) > 10; }));
    EXPECT_EQ(asked.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    controller.disconnect(sim::Port::io);
    EXPECT_EQ(asked.get(), VEXO_ERROR_TRANSPORT);
}
