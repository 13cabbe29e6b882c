// Without this a reply that is wrong, late or cut off could be taken for a good one, or cost the
// next.
#include <optional>

#include "tests/end_to_end/requests.h"

using namespace test;

namespace {

// What a request comes to. In the texts F stands for its function, N for the size of its reply.
struct Expected {
    int32_t result;
    const char* printed = "";
    const char* logged = nullptr;  // where that is not what was printed; nothing when it succeeds
};

struct Mishap {
    const char* name;
    const char* fault;
    Expected single;
    Expected page;
    bool single_goes_on = false;  // the next request succeeds
    bool page_goes_on = false;
    std::optional<Expected> hasty = std::nullopt;  // where it differs from `single`

    const Expected& of(Receives receives) const {
        if (receives == Receives::hasty && hasty) {
            return *hasty;
        }
        return receives == Receives::page ? page : single;
    }
    bool ends_connection() const {
        const std::string items = fault;
        return items.find("close") != items.npos || items.find("reset") != items.npos;
    }
    bool goes_on(Receives receives) const {
        return receives == Receives::page ? page_goes_on : single_goes_on;
    }
};

constexpr Expected kGood{0};
constexpr Expected kRefused{5, "F Error: 5\n"};
constexpr Expected kClosed{302, "F recv error\n", "F recv error: 0\n"};

const Mishap kMishaps[] = {
    {"Refused", "status=5", kRefused, kRefused, true, true},
    {"Late", "delay=100", kGood, kGood, true, true, Expected{0, "F recv error: -2\n"}},
    {"OtherLetter", "letter=Z", kGood, kGood, true, true},
    {"TooSmallALength",
     "length=3",
     kGood,
     {302, "F recv error, need_len:3, now_len:N\n"},
     true,
     true},
    {"TooLargeALength",
     "length=4000,close",
     kGood,
     {302, "F recv error, need_len:4000, now_len:N\n"}},
    {"Stub", "size=2", kGood, kGood, true, true},
    {"FilledUp", "size=1400", kGood, kGood, true, true},
    {"Long", "size=20000", kGood, kGood, false, true},
    {"TooLong", "size=30000", kGood, {302, "F recv error, need_len:30000, now_len:20480\n"}},
    {"ClosedBefore", "close,after=0", kClosed, kClosed, false, false,
     Expected{0, "F recv error: 0\n"}},
    {"ClosedWithin", "close,after=3", kGood, {302, "F recv error, need_len:N, now_len:3\n"}},
    {"ClosedAfter", "close", kGood, kGood},
    {"Reset",
     "reset,after=0",
     {302, "Receive failed - Connection reset by peer (errno: 104)\nF recv error\n",
      "F recv error: -1\n"},
     {302,
      "Receive failed - Connection reset by peer (errno: 104)\n"
      "F recv error, need_len:0, now_len:65535\n",
      "F recv error, need_len:0, now_len:65535\n"},
     false,
     false,
     Expected{0, "Receive failed - Connection reset by peer (errno: 104)\nF recv error: -1\n"}},
};

constexpr char kCatalogueFailure[] = "vexo_all_recipe_get vexo_control_methods_get Error: ";

void replace_all(std::string& text, const std::string& what, const std::string& by) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
}

struct Case {
    Request request;
    Mishap mishap;
};

void PrintTo(const Case& one, std::ostream* out) {
    *out << one.mishap.fault;
}

class Fault : public RequestFixture, public ::testing::WithParamInterface<Case> {
protected:
    Fault() : RequestFixture(GetParam().request) {}

    Outcome expected_outcome() const {
        const auto& [request, mishap] = GetParam();
        const Expected& expected = mishap.of(request.receives);
        Outcome outcome{expected.result, filled_in(expected.printed)};
        if (outcome.result != VEXO_ERROR_TRANSPORT) {
            outcome.printed += request.printed;
        }
        if (outcome.result != 0 && request.within_catalogue) {
            outcome.printed += kCatalogueFailure + std::to_string(outcome.result) + "\n";
        }
        return outcome;
    }

    void expect_logged(const Expected& expected) const {
        const std::string log = Session::finished_log(app_->address);
        if (expected.result == 0) {
            EXPECT_THAT(log, ::testing::Not(::testing::HasSubstr("rror")));
            return;
        }
        const char* text = expected.logged != nullptr ? expected.logged : expected.printed;
        EXPECT_THAT(log, ::testing::HasSubstr(" " + filled_in(text)));
        if (GetParam().request.within_catalogue) {
            EXPECT_THAT(log, ::testing::HasSubstr(kCatalogueFailure));
        }
    }

private:
    std::string filled_in(std::string text) const {
        replace_all(text, "F", request_.function);
        replace_all(text, "N", std::to_string(reply_size_));
        return text;
    }
};

std::string case_name(const ::testing::TestParamInfo<Case>& one) {
    return name_of(one.param.request) + "_" + one.param.mishap.name;
}

std::vector<Case> matrix(std::initializer_list<Receives> kinds) {
    std::vector<Case> result;
    for (const Request& request : those_with(kinds)) {
        for (const Mishap& mishap : kMishaps) {
            result.push_back({request, mishap});
        }
    }
    return result;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Matrix, Fault,
                         ::testing::ValuesIn(matrix({Receives::single, Receives::page})),
                         case_name);
INSTANTIATE_TEST_SUITE_P(Timing, Fault, ::testing::ValuesIn(matrix({Receives::hasty})), case_name);

TEST_P(Fault, EndsAsStatedAndLeavesNothingElse) {
    const auto& [request, mishap] = GetParam();
    log_init();
    const Expected& expected = mishap.of(request.receives);
    const Bytes before = state();
    inject(mishap.fault);
    EXPECT_EQ(call(), expected_outcome());
    EXPECT_EQ(app_->dataspace()[kStreamingOffset], expected.result == 0 ? request.streaming : 0);
    if (expected.result != 0) {
        EXPECT_EQ(handed(), Bytes(sizeof handed_.bytes, 0xA5));
    }
    Bytes after = before;
    if (expected.result != 0 && request.within_catalogue) {
        write_u32(after.data() + kMethodCountOffset, 0);
    }
    EXPECT_TRUE(state() == after);
    expect_logged(expected);
    if (mishap.goes_on(request.receives)) {
        if (expected.result == 0 &&
            *expected.printed != '\0') {  // the next call gets the late reply
            ASSERT_TRUE(app_->wait_settled(request.socket, 1));
        }
        EXPECT_EQ(call(), (Outcome{0, request.printed}));
        EXPECT_EQ(app_->dataspace()[kResponseOffset], reply_size_);
        EXPECT_TRUE(state() == before);
    } else if (mishap.ends_connection() && request.receives != Receives::hasty) {
        EXPECT_EQ(call().result, VEXO_ERROR_TRANSPORT) << "and every other one";
    }
}
