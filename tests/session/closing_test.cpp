// Ending a session, wherever it is and whoever is inside.
#include <thread>

#include "tests/session/session_fixture.h"

namespace test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto kClosesWithin = milliseconds(500);  // ten times the promise, for a loaded machine

// Where a session may be when it is closed, with a caller inside.
struct Held {
    const char* name;
    bool raw;
    const char* fault;  // that keeps it there; null: no controller
    char request;       // which is not answered; 0: none
    uint32_t state;
};
void PrintTo(const Held& held, std::ostream* out) {
    *out << held.name;
}

class Closing : public SessionFixture, public ::testing::WithParamInterface<Held> {
protected:
    // Opens a stream, and waits for what happens, until the session is closed.
    void be_inside() {
        const char* names[] = {"package_counter"};
        VexoSessionStream* opened = nullptr;
        int32_t result = vexo_session_stream_open(session_, names, 1, nullptr, kSoon, &opened);
        auto next = sized<VexoSessionEvent>();
        for (uint64_t position = 0; result == VEXO_SESSION_OK;) {
            result = vexo_session_next_event(session_, &position, &next, kSoon);
        }
        EXPECT_EQ(result, VEXO_SESSION_CLOSED);
    }
    // By several threads at once: one of them does it.
    int close_from_everywhere() {
        std::atomic<int> closed{0};
        std::vector<std::thread> closers;
        for (int i = 0; i < 3; ++i) {
            closers.emplace_back([this, &closed] {
                const auto begin = steady_clock::now();
                closed += vexo_session_close(session_) == VEXO_SESSION_OK ? 1 : 0;
                EXPECT_LT(steady_clock::now() - begin, kClosesWithin);
            });
        }
        for (std::thread& closer : closers) {
            closer.join();
        }
        return closed;
    }
};

TEST_P(Closing, IsPromptInEveryStateFromEveryThread) {
    const Held& held = GetParam();
    ASSERT_NO_FATAL_FAILURE(prepare({"", held.raw}));
    if (IsSkipped()) {
        return;
    }
    std::thread([] {}).join();  // with the first a sanitizer starts one of its own
    const auto descriptors = open_descriptors();
    const ptrdiff_t threads = thread_count();
    if (held.fault != nullptr) {
        start_controller();
        controller_->inject(sim::parse_fault(held.fault));
    }
    if (held.state == VEXO_SESSION_STATE_CONNECTING) {
        run_ip("addr add 10.0.0.1/24 dev host0");  // and nobody at the other end
        ASSERT_OK(vexo_session_open("10.0.0.2", nullptr, &session_));
    } else {
        open();
    }
    std::thread inside([this] { be_inside(); });
    EXPECT_TRUE(held.request != 0 ? controller_->wait_for_requests(held.request, 1)
                                  : wait_until([&] { return status().state == held.state; }));
    EXPECT_EQ(close_from_everywhere(), 1);
    inside.join();
    session_ = nullptr;
    controller_.reset();
    EXPECT_TRUE(wait_until([&] { return thread_count() == threads; }));
    EXPECT_EQ(open_descriptors(), descriptors);
}

INSTANTIATE_TEST_SUITE_P(
    Every, Closing,
    ::testing::Values(Held{"Waiting", false, nullptr, 0, VEXO_SESSION_STATE_WAITING},
                      Held{"Connecting", true, nullptr, 0, VEXO_SESSION_STATE_CONNECTING},
                      Held{"Negotiating", false, "type=V,lost", 'V', 0},
                      Held{"ReadingCatalogue", false, "type=R,lost", 'R', 0},
                      Held{"SettingUp", false, "type=O,lost", 'O', 0},
                      Held{"Starting", false, "type=S,lost", 'S', 0},
                      Held{"Streaming", false, "package,lost", 0, VEXO_SESSION_STATE_STREAMING},
                      Held{"StreamingRaw", true, "package,lost", 0, VEXO_SESSION_STATE_STREAMING}),
    [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace test
