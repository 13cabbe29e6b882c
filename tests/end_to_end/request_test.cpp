// Without this a request could have wrong bytes, or fail unnoticed before its reply.
#include "tests/end_to_end/requests.h"
#include "tests/support/sanitizers.h"

using namespace test;
using ::testing::HasSubstr;

namespace {

class AnyRequest : public RequestFixture, public ::testing::WithParamInterface<Request> {
protected:
    AnyRequest() : RequestFixture(GetParam()) {}

    sim::Port port() const {
        return request_.socket == kIoSocketOffset ? sim::Port::io : sim::Port::control;
    }
    std::string text(const std::string& what) const { return request_.function + what; }

    // Makes the request on a thread of its own, whose reply never comes.
    pthread_t wait_for_reply() {
        inject("lost");
        const uint64_t sent = controller_->counters().requests;
        pthread_t thread;
        const auto call_it = [](void* self) -> void* {
            auto& test = *static_cast<AnyRequest*>(self);
            test.result_ = test.request_.call(*test.app_, test.handed_);
            return nullptr;
        };
        EXPECT_EQ(pthread_create(&thread, nullptr, call_it, this), 0);
        EXPECT_TRUE(wait_until([&] { return controller_->counters().requests > sent; }));
        return thread;
    }

    int32_t result_ = 0;
};

std::vector<Request> direct_requests() {
    std::vector<Request> all = those_with({Receives::single, Receives::page});
    std::erase_if(all, [](const Request& request) { return request.within_catalogue; });
    return all;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Of, AnyRequest, ::testing::ValuesIn(direct_requests()),
                         [](const auto& request) { return name_of(request.param); });

TEST_P(AnyRequest, SendsItsBytes) {
    EXPECT_EQ(hex(controller_->requests(port()).back()), std::string(request_.message) + " ");
}

TEST_P(AnyRequest, ReportsASendFailureAfterTheReceive) {
    log_init();
    controller_->disconnect(port());
    // The first send meets the closed peer, whose answer is a reset; then sends fail.
    Outcome outcome{0, ""};
    EXPECT_TRUE(wait_until([&] {
        outcome = call();
        return outcome.printed.find("Send failed") != std::string::npos;
    }));
    EXPECT_EQ(outcome,
              (Outcome{302, "Send failed - Broken pipe (errno: 32)\n" + text(" send error\n")}));
    const std::string line = "Function:" + text(" Handle:") + std::to_string(app_->handle) +
                             " Time:" + R"([-0-9]{10} [:0-9]{8}\.[0-9]{6} )" +
                             text(" send error\n");
    EXPECT_THAT(Session::finished_log(app_->address), ::testing::ContainsRegex(line));
}

// Handle 0 has a log, and shows what is logged.
TEST_P(AnyRequest, RefusesAnUnknownHandle) {
    const uint8_t letter = bytes(request_.message).at(2);
    const bool prints = letter == 'V' || letter == 'R' || letter == 'r';
    const std::string printed = text("---VexoHandle not found\n");
    const uint32_t handle = app_->handle;
    app_->handle = handle + 5000;
    EXPECT_EQ(call(), (Outcome{-1, prints ? printed : ""}));
    log_init();
    app_->handle = 0;
    call();
    EXPECT_THAT(Session::finished_log("sys_log"),
                HasSubstr(" " + (prints ? printed : text(" Error: vexoHandle is NULL\n"))));
    app_->handle = handle;
}

TEST_P(AnyRequest, IsGivenUpWithItsThreadAndEndsWithItsHandle) {
    void* ended = nullptr;
    if (!kCancelledFramesStay) {
        const pthread_t cancelled = wait_for_reply();
        pthread_cancel(cancelled);
        ASSERT_EQ(pthread_join(cancelled, &ended), 0);
        EXPECT_EQ(ended, PTHREAD_CANCELED);
    }

    OutputCapture output;
    const pthread_t waiting = wait_for_reply();
    EXPECT_EQ(app_->destroy(), 0) << "the cancelled one does not hold the handle";
    app_.reset();
    ASSERT_EQ(pthread_join(waiting, &ended), 0);
    EXPECT_EQ(ended, nullptr);
    EXPECT_EQ(result_, VEXO_ERROR_TRANSPORT);
}
