// What sessions hold of the process: memory, descriptors and threads, through many cuts and in
// great number, and what a package, an input or a set-point allocates.
//
// VEXO_CUTS=10000 makes the long form of the cuts.
#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <list>

#include "tests/session/stream_reader.h"
#include "tests/support/allocations.h"
#include "tests/support/system_calls.h"

namespace test {
namespace {

struct Holdings {
    int64_t allocated = 0;  // bytes
    int64_t resident = 0;
    size_t descriptors = 0;
    ptrdiff_t threads = 0;

    static Holdings now() {
        malloc_trim(0);
        int64_t pages = 0;
        int64_t resident = 0;
        std::ifstream("/proc/self/statm") >> pages >> resident;
        return {live_bytes(), resident * 4096, open_descriptors().size(), thread_count()};
    }
};
void PrintTo(const Holdings& holdings, std::ostream* out) {
    *out << holdings.allocated << " bytes allocated, " << holdings.resident << " resident, "
         << holdings.descriptors << " descriptors, " << holdings.threads << " threads";
}

// What the controllers of the test may keep of what they were sent. One session has more.
constexpr int64_t kNothing = 256 << 10;

bool no_more_than(const Holdings& now, const Holdings& before) {
    return now.allocated <= before.allocated + kNothing && now.threads <= before.threads &&
           now.descriptors <= before.descriptors;
}

#define EXPECT_NO_GROWTH(before)                                                                 \
    do {                                                                                         \
        Holdings after;                                                                          \
        EXPECT_TRUE(wait_until([&] { return no_more_than(after = Holdings::now(), before); }))   \
            << ::testing::PrintToString(after) << " after " << ::testing::PrintToString(before); \
    } while (false)

sim::Options quiet(int number, double rate) {
    sim::Options options;
    options.address = own_loopback(number);
    options.rate = rate;
    options.history = 16;
    return options;
}

class Holding : public SessionFixture {};

TEST_F(Holding, NothingMoreAfterManyCuts) {
    const char* given = std::getenv("VEXO_CUTS");
    const int cuts = given != nullptr ? std::atoi(given) : 300;
    const int settled = cuts / 3;  // of them, until all that is kept for reuse is there
    start_controller(quiet(1, 1000));
    open(impatient());
    VexoSessionStream* opened = stream({"package_counter"});
    ASSERT_NE(opened, nullptr);
    StreamReader reader(opened);
    Holdings before;
    for (int i = 0; i < cuts && !HasFailure(); ++i) {
        if (i == settled) {
            before = Holdings::now();
        }
        const sim::Port ports[] = {sim::Port::io, sim::Port::control, sim::Port::stream};
        controller_->disconnect(ports[i % 3], i % 2 == 0 ? sim::Break::reset : sim::Break::close);
        event(VEXO_SESSION_EVENT_BACK);
        reader.read_up_to(status().connection);
    }
    EXPECT_NO_GROWTH(before);
    EXPECT_EQ(statistics().cuts, static_cast<uint64_t>(cuts));
    if (given != nullptr) {
        std::cout << "before " << ::testing::PrintToString(before) << "\nafter  "
                  << ::testing::PrintToString(Holdings::now()) << "\n";
    }
}

// A hundred robots, twice: the second hundred finds what the first has left.
class Hundred {
public:
    Hundred() {
        for (int i = 0; i < kRobots; ++i) {
            VexoSession* session = nullptr;
            EXPECT_OK(vexo_session_open(own_loopback(i + 1).c_str(), nullptr, &session));
            sessions_.push_back(session);
        }
    }
    ~Hundred() {
        for (VexoSession* session : sessions_) {
            EXPECT_OK(vexo_session_close(session));
        }
    }
    void stream_all() {
        for (VexoSession* session : sessions_) {
            const char* names[] = {"package_counter"};
            VexoSessionStream* opened = nullptr;
            auto options = sized<VexoSessionStreamOptions>();
            options.ring_s = 1;
            ASSERT_OK(vexo_session_stream_open(session, names, 1, &options, kSoon, &opened));
            readers_.emplace_back(opened);
        }
        for (StreamReader& reader : readers_) {
            reader.read_packages(20);
        }
    }
    static constexpr int kRobots = 100;

private:
    std::vector<VexoSession*> sessions_;
    std::list<StreamReader> readers_;
};

TEST(Holdings, OfAHundredSessionsAreGivenBack) {
    std::vector<std::unique_ptr<sim::Simulator>> controllers;
    for (int i = 0; i < Hundred::kRobots; ++i) {
        controllers.push_back(std::make_unique<sim::Simulator>(quiet(i + 1, 50)));
    }
    std::optional<Hundred> sessions;
    sessions.emplace();
    ASSERT_NO_FATAL_FAILURE(sessions->stream_all());
    sessions.reset();
    const Holdings first = Holdings::now();
    const ptrdiff_t threads = thread_count();
    sessions.emplace();
    ASSERT_NO_FATAL_FAILURE(sessions->stream_all());
    EXPECT_EQ(thread_count(), threads + 1);
    sessions.reset();
    EXPECT_NO_GROWTH(first);
}

// ---- Cyclic paths -------------------------------------------------------------------------------

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they allocate, too
// The application is a child process, whose allocations are not the controller's.
class Cycles : public SessionFixture, public ::testing::WithParamInterface<Path> {
protected:
    void SetUp() override { prepare(GetParam()); }

    void set_up() {
        open();
        VexoSessionStream* opened = stream({"package_counter", "actual_joint_positions"});
        records_.emplace(opened);
        EXPECT_OK(vexo_session_cursor_open(opened, nullptr, &cursor_));
        const char* names[] = {"application_step"};
        EXPECT_OK(vexo_session_inputs_open(session_, names, 1, kSoon, &inputs_));
        EXPECT_OK(vexo_session_wait(session_, VEXO_SESSION_STATE_STREAMING, kSoon));
    }
    // One of a control loop.
    void cycle() {
        EXPECT_OK(vexo_session_cursor_wait(cursor_, kSoon));
        records_->read(cursor_, 16);
        const double joints[6] = {};
        auto point = sized<VexoSessionSetPoint>();
        point.count = 6;
        point.joints = joints;
        EXPECT_OK(vexo_session_servo(session_, &point, kSoon));
        EXPECT_OK(vexo_session_inputs_set_f64(inputs_, "application_step", joints, 1));
        EXPECT_OK(vexo_session_inputs_send(inputs_));
        EXPECT_GT(statistics().packages, 0U);
    }
    // Set-points that the I/O thread sends.
    void feed(VexoSessionFeed* feed) {
        static constexpr double kPoints[50] = {};
        EXPECT_OK(vexo_session_feed_push(feed, kPoints, 50, kSoon, nullptr));
        EXPECT_OK(vexo_session_feed_drain(feed, kSoon));
    }
    template <typename Body>
    void expect_no_allocation(Body body) {
        body();  // what the first time takes is there then
        const uint64_t before = allocations();
        body();
        EXPECT_EQ(allocations(), before);
    }

    std::optional<Records> records_;
    VexoSessionCursor* cursor_ = nullptr;
    VexoSessionInputs* inputs_ = nullptr;
};

TEST_P(Cycles, AllocateNothing) {
    ChildProcess application([this] {
        set_up();
        expect_no_allocation([this] {
            for (int i = 0; i < 100; ++i) {
                cycle();
            }
        });
        auto options = sized<VexoSessionFeedOptions>();
        options.joints = 1;
        VexoSessionFeed* opened = nullptr;
        EXPECT_OK(vexo_session_feed_open(session_, &options, &opened));
        expect_no_allocation([=, this] { feed(opened); });
        EXPECT_OK(vexo_session_close(session_));
    });
    start_controller();
    EXPECT_TRUE(application.run());
}

INSTANTIATE_TEST_SUITE_P(Both, Cycles, ::testing::ValuesIn(kPaths),
                         [](const auto& each) { return std::string(each.param.name); });
#endif

}  // namespace
}  // namespace test
